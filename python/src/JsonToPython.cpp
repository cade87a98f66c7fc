#include "JsonToPython.h"

#include <string>

namespace py = pybind11;

namespace pyxmldsig {

namespace {

py::str toStr(const std::string& text) {
  PyObject* obj = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
  if (!obj) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(obj);
}

}  // namespace

py::object toPython(const nlohmann::ordered_json& value) {
  using Type = nlohmann::ordered_json::value_t;
  switch (value.type()) {
    case Type::null:
    case Type::discarded: return py::none();
    case Type::boolean: return py::bool_(value.get<bool>());
    case Type::number_integer: return py::int_(value.get<long long>());
    case Type::number_unsigned: return py::int_(value.get<unsigned long long>());
    case Type::number_float: return py::float_(value.get<double>());
    case Type::string: return toStr(value.get_ref<const std::string&>());
    case Type::array: {
      py::list list;
      for (const auto& item : value) list.append(toPython(item));
      return std::move(list);
    }
    case Type::object: {
      py::dict dict;
      for (const auto& item : value.items()) dict[toStr(item.key())] = toPython(item.value());
      return std::move(dict);
    }
    case Type::binary: break;
  }
  return py::none();
}

}  // namespace pyxmldsig
