// printf into a growing std::string.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace vorl {

inline void appendf(std::string &out, const char *format, ...) __attribute__((format(printf, 2, 3)));
inline void appendf(std::string &out, const char *format, ...) {
    char line[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    out += line;
}

}  // namespace vorl
