#pragma once

#include "Tools/qvctl/Policy/LintFindings.h"

#include <boost/json.hpp>

#include <string>
#include <vector>

namespace Qvctl::Policy {

/// Returns "key", or "key[2]" for a finding about one element.
std::string subjectOf(const LintFinding& finding);

/// Prints one line per finding, in color if standard output supports it: "FILE:2:5: error: key problem;
/// effect; fix".
void printFindings(const std::vector<LintFinding>& findings);
/// Prints the same lines to standard error, without color.
void reportFindings(const std::vector<LintFinding>& findings);

boost::json::array findingsJSON(const std::vector<LintFinding>& findings);

bool hasErrors(const std::vector<LintFinding>& findings);

} // namespace Qvctl::Policy
