#include "Platform/Network/CertificateEnvironment.h"

#include <cstdlib>

namespace Platform::Network {

namespace {

std::string valueOf(const char* variable)
{
    const char* value = std::getenv(variable);
    return value == nullptr ? std::string() : value;
}

} // namespace

CertificateEnvironment CertificateEnvironment::read()
{
    CertificateEnvironment environment{valueOf("SSL_CERT_FILE"), valueOf("SSL_CERT_DIR")};
    // libcurl would trust the system's folder in addition to the file.
    if (!environment.file.empty() && environment.folder.empty())
        environment.folder = "/dev/null";
    return environment;
}

} // namespace Platform::Network
