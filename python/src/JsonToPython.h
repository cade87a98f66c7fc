// Python objects (dict, list, str, int, float, bool, None) from the JSON the tool prints,
// so that a dict holds exactly what a JSON line holds.
#pragma once

#include <pybind11/pybind11.h>
#include <nlohmann/json.hpp>

namespace pyxmldsig {

// Needs the GIL. Text that is not UTF-8 is decoded with replacement characters, as the
// tool's JSON output replaces it.
pybind11::object toPython(const nlohmann::ordered_json& value);

}  // namespace pyxmldsig
