#pragma once

#include <boost/json.hpp>

#include <string>

namespace Qvctl::Policy {

// Descriptions of the managed keys for other programs.

/// A JSON Schema of the policy file. It accepts all keys without `lint` errors and all values that
/// validation does not drop; it cannot check whether a value can be used in a request. Source: JSON
/// Schema, draft 2020-12.
boost::json::object jsonSchema();

/// The XML from which a management console builds a form. Source: the managedAppConfiguration schema of the
/// AppConfig Community, appconfig.xsd.
std::string appConfigForm();

/// A JSON Schema of the stored snapshot, for its readers. Members that it does not name are allowed, because
/// later versions of the app may add some.
boost::json::object snapshotSchema();

/// A policy file with an example value for every managed key.
boost::json::object samplePolicy();

} // namespace Qvctl::Policy
