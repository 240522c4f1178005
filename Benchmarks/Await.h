#pragma once

#include "Tools/Tour/ChildProcess.h"

#include <stdexcept>
#include <string>
#include <string_view>

/// Waits until the program has written a line with this text. Throws `std::runtime_error` if it does not.
inline void await(ChildProcess& process, std::string_view line)
{
    if (!process.waitForLine(line))
        throw std::runtime_error("the program never wrote \"" + std::string(line) + "\"");
}
