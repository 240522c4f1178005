#pragma once

#include <cstdint>

/// A change of a file or folder of the device, as the fault library appends it to the recording. The path and
/// `byteCount` bytes follow.
struct FileRecord {
    /// Environment variable with the path of the recording; nothing is recorded without it.
    static constexpr const char* fileVariable = "QUORVANE_FILE_RECORDING";

    enum class Kind : std::uint32_t {
        createFile,
        createFolder,
        /// Writes the bytes at `offset`.
        write,
        /// Changes the size to `offset`.
        truncate,
        /// Renames to the path in the bytes.
        rename,
        remove,
        /// Synchronizes a file or folder, with what the first `offset` bytes of the recording contain.
        synchronize,
    };

    Kind kind;
    std::uint32_t pathLength = 0;
    std::uint64_t byteCount = 0;
    std::uint64_t offset = 0;
};
