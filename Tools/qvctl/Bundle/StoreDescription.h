#pragma once

#include "Tools/qvctl/Bundle/Redaction.h"

#include <boost/json.hpp>

#include <filesystem>

namespace Qvctl::Bundle {

/// Describes a store without its values: format, tables, and for each key its type and size. Changes nothing.
boost::json::object describeStore(const std::filesystem::path& file, const Redaction& redaction);

} // namespace Qvctl::Bundle
