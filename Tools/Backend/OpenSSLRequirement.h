#pragma once

/// Throws `std::runtime_error` with `what` and OpenSSL's last error on this thread, unless `isDone`.
void require(bool isDone, const char* what);
