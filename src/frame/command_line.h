// The arguments of a rundll32 command line.
#pragma once

#include <string>

#include <windows.h>

#include "frame/handles.h"

namespace setuputils {

// Splits the text rundll32 passes after "library,entry" with the system's
// quoting rules. Its first word is argument 1. An empty or blank text has no
// arguments (the system would answer with the program's own path).
class CommandLineArguments {
public:
    explicit CommandLineArguments(const wchar_t* commandLine);

    int count() const { return count_; }
    // Argument `number` (1-based), or `fallback` when there are fewer.
    const wchar_t* at(int number, const wchar_t* fallback = nullptr) const;

private:
    LocalMemory memory_;
    wchar_t** arguments_ = nullptr;
    int count_ = 0;
};

} // namespace setuputils
