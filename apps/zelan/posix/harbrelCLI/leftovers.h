// What daemons leave behind that were killed together with the process that cleans up behind them.
#pragma once

// Has zelan-watch(8), of the tool's own folder, remove it. Nothing is waited for and nothing reported: where
// that program is missing there is nothing to remove either.
void RemoveLeftovers();
