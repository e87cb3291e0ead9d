#include "apps/zelan/posix/harbrelCLI/session.h"

#include "apps/zelan/posix/harbrelCLI/report.h"
#include "lib/harbrel/harbrel.h"

namespace {

bool libraryLoaded = false;

}  // namespace

bool SetLibraryLoaded(bool wanted) {
    if (wanted && !libraryLoaded) {
        if (!HBL_Load()) {
            Report(REPORT_ERROR, "Failed to initialize");
            return false;
        }
        libraryLoaded = true;
    } else if (!wanted && libraryLoaded) {
        HBL_Unload();
        libraryLoaded = false;
    }
    return true;
}
