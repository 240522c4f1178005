#pragma once

#include <boost/json.hpp>

#include <string>

namespace Qvctl::Policy {

// The managed keys in the forms in which other programs take them.

/// A schema of the policy file as JSON. It accepts every key that `lint` has no error about, and every value
/// that validation does not drop; whether a value can be used in a request only `lint` knows. Source: JSON
/// Schema, draft 2020-12.
boost::json::object jsonSchema();

/// The form by which a management console asks for the values. Source: the managedAppConfiguration schema of
/// the AppConfig Community, appconfig.xsd.
std::string appConfigForm();

/// A policy with every key, to be changed and put in force.
boost::json::object samplePolicy();

} // namespace Qvctl::Policy
