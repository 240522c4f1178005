#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

// The part of the fault library that records changes of the device's files. All functions preserve `errno`.

bool isDeviceFile(const char* path);
bool isDeviceFile(int descriptor);
/// Returns an empty string for a closed descriptor.
std::string pathOf(int descriptor);

/// Returns whether open(2) with these arguments will create a file.
bool willCreate(int folder, const char* path, int flags);
void recordOpening(int descriptor, int flags, bool isCreated);
/// `offset` is the file position after the write if it is negative.
void recordWrite(int descriptor, const void* bytes, ssize_t count, off64_t offset);
void recordTruncation(int descriptor, off64_t length);

/// Returns the length of the recording in bytes.
std::uint64_t recordedLength();
/// `begin` is the recorded length before the synchronization.
void recordSynchronization(int descriptor, std::uint64_t begin);
