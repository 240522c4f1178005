#pragma once

#include "Tools/qvctl/Policy/LintFindings.h"

#include <boost/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace Qvctl::Policy {

/// "key", or "key[2]" for a finding about one element.
std::string subjectOf(const LintFinding& finding);

/// Each finding on a line, in color where standard output has it: "FILE:2:5: error: key problem; effect;
/// fix".
void printFindings(const std::filesystem::path& file, const std::vector<LintFinding>& findings);
/// The same lines on standard error.
void reportFindings(const std::filesystem::path& file, const std::vector<LintFinding>& findings);

boost::json::array findingsJSON(const std::vector<LintFinding>& findings);

bool hasErrors(const std::vector<LintFinding>& findings);

} // namespace Qvctl::Policy
