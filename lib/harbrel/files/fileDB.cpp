#include "lib/harbrel/files/fileDB.h"

bool HBLFileDBLoad() {
    return true;
}

bool HBLFileDBUnload() {
    return true;
}

bool HBLFileDBAddDirectory(const char *) {
    return true;
}

bool HBLFileDBAddFile(const char *, const char *) {
    return true;
}

bool HBLFileDBRemoveDirectory(const char *) {
    return true;
}

bool HBLFileDBRemoveFile(const char *) {
    return true;
}
