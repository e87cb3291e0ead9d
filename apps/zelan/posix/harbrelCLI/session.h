// The one place where the tool loads and unloads the library, so that it holds at most one load.
#pragma once

// Harmless to call twice in either direction. Only a failed load gives false, after a report.
bool SetLibraryLoaded(bool wanted);
