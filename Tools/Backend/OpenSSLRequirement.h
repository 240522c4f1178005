#pragma once

/// Throws `std::runtime_error` with `what` and the reason that OpenSSL gives on this thread, unless `isDone`.
void require(bool isDone, const char* what);
