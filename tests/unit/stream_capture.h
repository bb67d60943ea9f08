// Collects what the code under test prints on the output stream.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "util/state.h"

namespace krt_unit {

class StreamCapture {
  public:
    StreamCapture() : saved_(stream), file_(open_memstream(&buffer_, &size_)) { stream = file_; }
    ~StreamCapture()
    {
        if (file_ != nullptr)
            std::fclose(file_);
        std::free(buffer_);
        stream = saved_;
    }
    StreamCapture(const StreamCapture &) = delete;
    StreamCapture &operator=(const StreamCapture &) = delete;

    // Everything printed so far.
    std::string text()
    {
        std::fflush(file_);
        return std::string(buffer_, size_);
    }

  private:
    FILE *saved_;
    char *buffer_ = nullptr;
    std::size_t size_ = 0;
    FILE *file_;
};

}  // namespace krt_unit
