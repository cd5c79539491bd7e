// The compiled part of the Python package.
#include <string>

#include "bindings/python/module/objects.h"
#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "qim_acl.h"
#include "rov_edit.h"

namespace {

uint32_t crc32c(const pybind11::bytes& data, uint32_t crc) {
  const std::string_view bytes = data;
  return rov_crc32c(crc, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

}  // namespace

PYBIND11_MODULE(_qim, module) {
  namespace py = pybind11;
  module.doc() = "Packet policy of a network device as typed nodes.";
  module.attr("CLIENT_ID") = qimctl::client_id;
  module.attr("MAX_JSON_NUMBER") = qimctl::max_json_number;
  module.def("crc32c", &crc32c, py::arg("data"), py::arg("crc") = 0,
             "The CRC-32C of bytes, continued from `crc`.");
  module.def("status_name", &qim_status_name, py::arg("status"), "The name of a status.");
  module.def("status_text", &qim_status_text, py::arg("status"),
             "What a status means and what to do about it.");
  qim_python::add_errors(module);
  qim_python::add_nodes(module);
  qim_python::add_databases(module);
  qim_python::add_policies(module);
}
