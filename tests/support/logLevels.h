// The lines that the library has logged in this process, whatever the mask: each is checked on its way.
#pragma once

struct LinesLogged {
    unsigned all = 0;
    unsigned reasons = 0;  // errors and warnings
};

LinesLogged LogLevels_Count();
