#include "Tools/Backend/OpenSSLRequirement.h"

#include <openssl/err.h>

#include <array>
#include <stdexcept>
#include <string>

void require(bool isDone, const char* what)
{
    if (isDone)
        return;
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
    ERR_clear_error();
    throw std::runtime_error(std::string(what) + ": " + reason.data());
}
