// Who may touch caches when: one thread loads, changes and unloads, any number of others read meanwhile.
//
// A reader holds the guard for as long as it looks at tables or at the default cache's slot, and copies out
// what it hands on. The changing thread holds it alone while any of these is in motion; what it alone touches
// (stream, lock token, the tracked file) needs no guard. A change may read and change within itself; a reader
// takes no second hold, before which a change could be waiting. A waiting change goes before new readers.
#pragma once

class CacheReading {
  public:
    CacheReading();
    ~CacheReading();
    CacheReading(const CacheReading &) = delete;
    CacheReading &operator=(const CacheReading &) = delete;

  private:
    bool isOutermost_;
};

class CacheChanging {
  public:
    CacheChanging();
    ~CacheChanging();
    CacheChanging(const CacheChanging &) = delete;
    CacheChanging &operator=(const CacheChanging &) = delete;

  private:
    bool isOutermost_;
};
