#pragma once
// System variables in a JSON file, for "ruvo run --vars / --vars-out":
//   {"variables": [{"namespace": "engine", "name": "rpm", "type": "int32", "value": 800,
//                   "min": 0, "max": 8000, "description": "..."}, ...]}
// Names and texts are UTF-8 in the file and GBK in the workstation's store. 64-bit integers are
// written as decimal strings (a JSON number would lose digits); either form is read.

#include <stdexcept>
#include <string>

namespace cli {

// "FILE: variables[3].value: reason".
struct VarsFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Checks the whole file, then creates every variable in the store; raises VarsFileError before
// any variable is created when the file is malformed. Returns the count.
size_t loadVariables(const std::string& path, const std::string& shownPath);

// Writes every variable of the store, crash-safely (a temporary file renamed into place).
// Returns the count; raises runtime_error with the reason.
size_t saveVariables(const std::string& path);

}  // namespace cli
