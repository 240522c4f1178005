#pragma once

#include <string_view>

/// The fields of a journal entry of ours. Source: systemd.journal-fields(7); the last four are our own.
namespace Platform::Linux::JournalFields {

inline constexpr std::string_view message = "MESSAGE";
inline constexpr std::string_view priority = "PRIORITY";
inline constexpr std::string_view identifier = "SYSLOG_IDENTIFIER";
inline constexpr std::string_view subsystem = "QV_SUBSYSTEM";
inline constexpr std::string_view category = "QV_CATEGORY";
inline constexpr std::string_view level = "QV_LEVEL";
inline constexpr std::string_view privacy = "QV_PRIVACY";

} // namespace Platform::Linux::JournalFields
