#pragma once

#include <string>

namespace Platform::Network {

/// The trusted certificates that are set in the environment: those in the file `SSL_CERT_FILE`, by default
/// the system's, and those in the folder `SSL_CERT_DIR`. With a file and no folder, only the file is trusted.
///
/// Threads: any, as long as no thread changes the environment.
struct CertificateEnvironment {
    // For CURLOPT_CAINFO and CURLOPT_CAPATH; empty for libcurl's defaults.
    std::string file;
    std::string folder;

    static CertificateEnvironment read();
};

} // namespace Platform::Network
