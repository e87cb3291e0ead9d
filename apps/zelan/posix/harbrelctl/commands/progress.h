// Something to see on a terminal while long work goes on; nothing anywhere else.
#pragma once

#include <string>

class Progress {
  public:
    explicit Progress(const std::string &what);
    ~Progress();  // clears the line
    Progress(Progress &&) = delete;
    void Tick() const;

  private:
    bool shown_;
};
