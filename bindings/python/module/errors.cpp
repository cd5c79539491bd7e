// Failures as exceptions of Python.
#include <string>

#include "bindings/python/module/objects.h"
#include "policy/base/policy.h"
#include "policy/trace/packet_words.h"
#include "tools/commands/place.h"

namespace qim_python {

namespace {

PyObject* g_error = nullptr;
PyObject* g_input_error = nullptr;

PyObject* make_exception(py::module_& module, const char* name, const char* doc, PyObject* base) {
  const std::string full = std::string("qim.") + name;
  PyObject* made = PyErr_NewExceptionWithDoc(full.c_str(), doc, base, nullptr);
  if (made == nullptr) throw py::error_already_set();
  module.add_object(name, py::reinterpret_borrow<py::object>(made));
  return made;
}

void raise(const qimctl::DatabaseError& error) {
  const py::object made = py::reinterpret_borrow<py::object>(g_error)(error.what());
  made.attr("status") = error.status();
  made.attr("name") = qimctl::status_name(error.status());
  PyErr_SetObject(g_error, made.ptr());
}

void raise_input_error(const char* what, const py::list& problems) {
  const py::object made = py::reinterpret_borrow<py::object>(g_input_error)(what);
  made.attr("problems") = problems;
  PyErr_SetObject(g_input_error, made.ptr());
}

void raise(const qimctl::InputError& error) {
  py::list problems;
  for (const qimctl::Problem& problem : error.problems()) problems.append(problem.message);
  raise_input_error(error.what(), problems);
}

void raise(const qimctl::PacketError& error) {
  py::list problems;
  problems.append(error.what());
  raise_input_error(error.what(), problems);
}

void translate(std::exception_ptr thrown) {
  try {
    std::rethrow_exception(std::move(thrown));
  } catch (const qimctl::DatabaseError& error) {
    raise(error);
  } catch (const qimctl::InputError& error) {
    raise(error);
  } catch (const qimctl::PacketError& error) {
    raise(error);
  } catch (const qimctl::NoSuchPlace& error) {
    PyErr_SetString(PyExc_LookupError, error.what());
  }
}

}  // namespace

void add_errors(py::module_& module) {
  g_error = make_exception(module, "Error",
                           "A failure of the database or of the policy library. status: its "
                           "number; name: that of the status, 'ROV_ERR_BUSY'.",
                           PyExc_Exception);
  g_input_error = make_exception(module, "InputError",
                                 "Files or packets that can't be understood. problems: what is "
                                 "wrong, a text each.",
                                 PyExc_ValueError);
  py::register_exception_translator(translate);
}

}  // namespace qim_python
