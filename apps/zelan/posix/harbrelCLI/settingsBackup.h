// The file in which an upgrade keeps the existing settings meanwhile.
#pragma once

#include <string>

// A file under /tmp that goes with the object. Made with it is the folder in which the file is locked for an
// import: /tmp is everybody's, and whoever saw the file's name could else put something in the folder's place
// while the networks are being stopped.
class SettingsBackup {
  public:
    SettingsBackup();
    ~SettingsBackup();
    SettingsBackup(const SettingsBackup &) = delete;
    SettingsBackup &operator=(const SettingsBackup &) = delete;

    bool Reserved() const { return reserved_; }  // false: errno told why when the object was made
    const char *Path() const { return path_.c_str(); }

  private:
    bool Reserve();
    std::string LockFolder() const { return path_ + ".lck"; }

    std::string path_;
    bool reserved_ = false;
};
