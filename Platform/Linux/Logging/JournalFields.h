#pragma once

#include <string_view>

/// The fields of the application's journal entries. Source: systemd.journal-fields(7).
namespace Platform::Linux::Logging::JournalFields {

inline constexpr std::string_view message = "MESSAGE";
inline constexpr std::string_view priority = "PRIORITY";
inline constexpr std::string_view identifier = "SYSLOG_IDENTIFIER";
// Specific to this application.
inline constexpr std::string_view subsystem = "QV_SUBSYSTEM";
inline constexpr std::string_view category = "QV_CATEGORY";
inline constexpr std::string_view level = "QV_LEVEL";
inline constexpr std::string_view privacy = "QV_PRIVACY";

// Added by journald; a sender cannot forge them.
inline constexpr std::string_view user = "_UID";
inline constexpr std::string_view program = "_EXE";

} // namespace Platform::Linux::Logging::JournalFields
