// xmldsig._native: the library called in process. The Python layer (xmldsig/__init__.py)
// checks the arguments and turns every kind of source into bytes or a path; this layer
// copies what it needs out of Python objects, then does the work without the GIL so that
// Python threads verify in parallel.
#include <optional>
#include <stdexcept>
#include <string>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "Canonicalize.h"
#include "Documents.h"
#include "JsonToPython.h"

namespace py = pybind11;

namespace pyxmldsig {

namespace {

// A document that cannot be read or parsed; becomes xmldsig.XmlError.
struct XmlError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

cli::VerifyRequest requestOrRaise(const OptionValues& options) {
  cli::VerifyRequest req;
  std::string error;
  if (!requestFromOptions(options, req, error)) throw py::value_error(error);
  return req;
}

Document documentFrom(const std::optional<py::bytes>& data, const std::string& name) {
  Document doc;
  doc.name = name;
  doc.inMemory = data.has_value();
  if (data) doc.bytes = *data;
  return doc;
}

// The reason a document gave no result, naming the file when it is one.
std::string located(const Document& doc, const std::string& error) {
  return doc.inMemory ? error : doc.name + ": " + error;
}

py::list verify(const std::optional<py::bytes>& data, const std::string& name, const OptionValues& options) {
  const cli::VerifyRequest req = requestOrRaise(options);
  Document doc = documentFrom(data, name);
  const Document where{doc.name, doc.inMemory, {}};
  VerifyOutcome outcome;
  {
    py::gil_scoped_release unlocked;
    outcome = verifyOne(req, std::move(doc));
  }
  if (!outcome.loaded) throw XmlError(located(where, outcome.error));
  py::list results;
  for (const nlohmann::ordered_json& obj : outcome.objects) results.append(toPython(obj));
  return results;
}

py::object info(const std::optional<py::bytes>& data, const std::string& name, const OptionValues& options) {
  const cli::VerifyRequest req = requestOrRaise(options);
  Document doc = documentFrom(data, name);
  const Document where{doc.name, doc.inMemory, {}};
  InfoOutcome outcome;
  {
    py::gil_scoped_release unlocked;
    outcome = describeOne(req, std::move(doc));
  }
  if (!outcome.loaded) throw XmlError(located(where, outcome.error));
  return toPython(outcome.object);
}

py::list verifyLines(const std::vector<std::string>& paths, const OptionValues& options) {
  const cli::VerifyRequest req = requestOrRaise(options);
  std::vector<ResultLine> lines;
  {
    py::gil_scoped_release unlocked;
    lines = verifyFiles(req, paths);
  }
  py::list out;
  for (const ResultLine& line : lines) {
    PyObject* text = PyUnicode_DecodeUTF8(line.text.data(), static_cast<Py_ssize_t>(line.text.size()), "replace");
    if (!text) throw py::error_already_set();
    out.append(py::make_tuple(py::reinterpret_steal<py::str>(text), static_cast<int>(line.status)));
  }
  return out;
}

py::bytes canonicalizeCall(const py::bytes& data, bool exclusive, bool withComments,
                           const std::optional<std::string>& fragment, const std::string& prefixes) {
  const std::string bytes = data;
  CanonicalizeRequest request;
  request.exclusive = exclusive;
  request.withComments = withComments;
  request.hasFragment = fragment.has_value();
  if (fragment) request.fragment = *fragment;
  request.prefixes = prefixes;
  std::string out, error;
  bool ok;
  {
    py::gil_scoped_release unlocked;
    ok = canonicalizeBytes(bytes, request, out, error);
  }
  if (!ok) throw XmlError(error);
  return py::bytes(out);
}

}  // namespace

}  // namespace pyxmldsig

PYBIND11_MODULE(_native, m) {
  using namespace pyxmldsig;
  m.doc() = "The xmldsig library called in process (use the xmldsig package, not this module).";

  auto xmlError = py::register_exception<XmlError>(m, "XmlError");
  xmlError.attr("__module__") = "xmldsig";
  xmlError.attr("__doc__") =
      "The document cannot be read or parsed (or lacks the signature asked for); the message "
      "says where and why.";

  m.def("verify", &verify, py::arg("data"), py::arg("name"), py::arg("options"),
        "The verify --json objects of a document: data, or the file name when data is None.");
  m.def("info", &info, py::arg("data"), py::arg("name"), py::arg("options"),
        "The info --json object of a document: data, or the file name when data is None.");
  m.def("verify_lines", &verifyLines, py::arg("paths"), py::arg("options"),
        "(JSON line, status 0 valid / 1 invalid / 2 not verified) for every result of each file.");
  m.def(
      "check_options", [](const OptionValues& options) { requestOrRaise(options); }, py::arg("options"),
      "Raises ValueError for options verify would refuse (a value, key or file that cannot be used).");
  m.def("canonicalize", &canonicalizeCall, py::arg("data"), py::arg("exclusive"), py::arg("with_comments"),
        py::arg("fragment_id"), py::arg("prefixes"),
        "The UTF-8 canonical form of XML bytes, or of the element fragment_id names.");
}
