#include "recorder.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <ostream>

namespace fake {
namespace {

// Every function of the platform that the library may call, and whether it returns a status.
struct Function {
  std::string_view name;
  bool fallible;
};
constexpr std::array kFunctions = {
    Function{"rov_lib_init", true},
    Function{"rov_lib_defaults", true},
    Function{"rov_lib_init_locks", true},
    Function{"rov_db_init_parms_init", true},
    Function{"rov_db_init_parms_get", true},
    Function{"rov_db_init", true},
    Function{"rov_db_close", true},
    Function{"rov_db_set_ps_sizes", true},
    Function{"rov_db_reg_node_id_cnv", true},
    Function{"rov_reg_show_output", true},
    Function{"rov_reg_extract_pinst", true},
    Function{"rov_reg_dbg_dsetname_print", true},
    Function{"rov_node_parms_get", true},
    Function{"rov_node_data_get", true},
    Function{"rov_node_ln_field_get", true},
    Function{"rov_node_link_get", true},
    Function{"rov_node_link_match", true},
    Function{"rov_node_ref_get", true},
    Function{"rov_node_ref_get_all", true},
    Function{"rov_node_dset_get", true},
    Function{"rov_node_priv_set", true},
    Function{"rov_node_priv_ptr_set", true},
    Function{"rov_node_priv_ptr_get", true},
    Function{"rov_data_cpy", true},
    Function{"rov_ses_open_ro", true},
    Function{"rov_ses_close", true},
    Function{"rov_ses_orig_handle", true},
    Function{"rov_ses_timeout", true},
    Function{"rov_ses_get_num_dsets", true},
    Function{"rov_ses_dset_get", true},
    Function{"rov_ses_dset_name_get", true},
    Function{"rov_db_show_internal", true},
    Function{"rov_db_ses_exists", true},
    Function{"rov_db_ses_lock_grant", true},
    Function{"rov_db_snapshot", true},
    Function{"rov_db_uri_snapshot", true},
    Function{"rov_db_uri_rm", true},
    Function{"rov_db_priv_write", true},
    Function{"rov_db_priv_delete", true},
    Function{"rov_db_priv_recover2", true},
    Function{"rov_db_priv_read", true},
    Function{"rov_ses_priv_write", true},
    Function{"rov_ses_priv_delete", true},
    Function{"rov_ses_priv_recover", true},
    Function{"rov_ses_priv_recover2", true},
    Function{"rov_ses_priv_read", true},
    Function{"rov_ps_datasize", true},
    Function{"rov_ps_data", true},
    Function{"rov_err_getprev", true},
    Function{"rov_err_retry_ok", false},
    Function{"rov_cl_err_retry_ok", false},
    Function{"rov_db_reg_logger", true},
    Function{"rov_db_debug", true},
    Function{"rov_db_priv_post", true},
    Function{"rov_db_ntf", true},
    Function{"rov_process_msg", true},
    Function{"rov_msg_is_rov", false},
    Function{"rov_db_usr_group", true},
    Function{"rov_usr_id_info", true},
    Function{"rov_cpy_fld_to_tlv", true},
    Function{"rov_tlv_to_bufptr", true},
    Function{"rov_tlv_from_listel", true},
    Function{"rov_tlv_to_listel", true},
    Function{"rov_tlv_listel_tlvsize", false},
    Function{"rov_tlv_listptr_nels", false},
    Function{"rov_tlva_from_union", true},
    Function{"rov_tlva_to_union", true},
    Function{"rov_tlva_union_siz", false},
    Function{"rov_dbg_abort_chk", false},
    Function{"tlvo_dec_tlva_to_struct", true},
    Function{"tlvo_dec_tlva_to_struct_size", true},
    Function{"tlvo_enc_struct_to_tlva", true},
    Function{"tlvo_enc_struct_to_tlva_size", false},
    Function{"mem_zalloc", true},
    Function{"mem_alloc_ary", true},
    Function{"mem_free", true},
    Function{"memset_s", false},
    Function{"snprintf_bytes", false},
};

// A test that misspells a function would otherwise pass without having failed anything.
const Function& known(std::string_view name) {
  const auto* found = std::find_if(kFunctions.begin(), kFunctions.end(),
                                   [&](const Function& f) { return f.name == name; });
  if (found != kFunctions.end()) return *found;
  std::fprintf(stderr, "fake: no platform function is called %.*s\n", static_cast<int>(name.size()),
               name.data());
  std::abort();
}

struct Failure {
  std::uint32_t status;
  unsigned calls_before;  // calls that still pass
  bool every = false;     // strikes again and again
};

struct Recorder {
  std::mutex mutex;
  Calls calls;
  unsigned fallible = 0;
  std::map<std::string, Failure, std::less<>> failures;
  std::optional<Failure> nth;
  std::map<std::string, Script, std::less<>> scripts;
  std::string injected;
  Hit hit;
  std::vector<Report> reports;
  Settings settings;
};

Recorder& recorder() {
  static Recorder* const instance = new Recorder;
  return *instance;
}

// Is it this call's turn?
bool strikes(Failure& failure) {
  if (failure.every || failure.calls_before == 0) return true;
  --failure.calls_before;
  return false;
}

// The status to fail the call recorded last with, if any.
std::optional<std::uint32_t> failure_of(Recorder& r, const Function& function) {
  std::optional<std::uint32_t> status;
  if (r.nth && function.fallible && strikes(*r.nth)) {
    status = r.nth->status;
    r.nth.reset();
  }
  const auto found = r.failures.find(function.name);
  if (found != r.failures.end() && strikes(found->second)) {
    status = found->second.status;
    if (!found->second.every) r.failures.erase(found);
  }
  if (status) {
    r.injected = function.name;
    r.hit.call = r.calls.back();
    r.hit.nth = static_cast<std::size_t>(
        std::count_if(r.calls.begin(), r.calls.end(),
                      [&](const Call& made) { return made.name == function.name; }));
  }
  return status;
}

void arm(std::string_view name, const Failure& failure) {
  known(name);
  const std::lock_guard lock(recorder().mutex);
  recorder().failures[std::string(name)] = failure;
}

}  // namespace

std::optional<std::uint32_t> detail::enter(Call made) {
  Recorder& r = recorder();
  Script script;
  {
    const std::lock_guard lock(r.mutex);
    const Function& function = known(made.name);
    r.calls.push_back(made);
    if (function.fallible) ++r.fallible;
    if (const auto status = failure_of(r, function)) return status;
    const auto found = r.scripts.find(function.name);
    if (found == r.scripts.end()) return std::nullopt;
    script = found->second;
  }
  return script(made);
}

void PrintTo(const Call& call, std::ostream* os) {
  *os << call.name << '(';
  const char* separator = "";
  for (const Arg& arg : call.args) {
    *os << separator;
    separator = ", ";
    if (arg.wild) {
      *os << "any";
    } else {
      *os << "0x" << std::hex << arg.value << std::dec;
    }
  }
  *os << ')';
}

void reset() {
  Recorder& r = recorder();
  {
    const std::lock_guard lock(r.mutex);
    r.calls.clear();
    r.fallible = 0;
    r.failures.clear();
    r.nth.reset();
    r.scripts.clear();
    r.injected.clear();
    r.hit = Hit{};
    r.reports.clear();
    r.settings = Settings{};
  }
  detail::reset_memory();
  detail::reset_nodes();
}

Calls calls() {
  const std::lock_guard lock(recorder().mutex);
  return recorder().calls;
}

Calls calls_of(std::string_view name) {
  known(name);
  Calls found;
  for (Call& made : calls()) {
    if (made.name == name) found.push_back(std::move(made));
  }
  return found;
}

std::size_t count(std::string_view name) {
  return calls_of(name).size();
}

std::vector<std::string> names() {
  std::vector<std::string> found;
  for (const Call& made : calls()) found.push_back(made.name);
  return found;
}

void clear_calls() {
  const std::lock_guard lock(recorder().mutex);
  recorder().calls.clear();
  recorder().fallible = 0;
}

void fail(std::string_view name, std::uint32_t status, unsigned nth) {
  arm(name, Failure{status, nth - 1});
}

void fail_every(std::string_view name, std::uint32_t status) {
  arm(name, Failure{status, 0, true});
}

void fail_nth(std::uint32_t status, unsigned nth) {
  const std::lock_guard lock(recorder().mutex);
  recorder().nth = Failure{status, nth - 1};
}

unsigned fallible_calls() {
  const std::lock_guard lock(recorder().mutex);
  return recorder().fallible;
}

std::string injected() {
  const std::lock_guard lock(recorder().mutex);
  return recorder().injected;
}

Hit hit() {
  const std::lock_guard lock(recorder().mutex);
  return recorder().hit;
}

void script(std::string_view name, Script script) {
  known(name);
  const std::lock_guard lock(recorder().mutex);
  recorder().scripts[std::string(name)] = std::move(script);
}

Settings& settings() {
  return recorder().settings;
}

void logger(std::uint32_t severity, const char* text, void* arg) {
  const std::lock_guard lock(recorder().mutex);
  recorder().reports.push_back({severity, text, arg});
}

std::vector<Report> reports() {
  const std::lock_guard lock(recorder().mutex);
  return recorder().reports;
}

std::vector<std::string> report_texts() {
  std::vector<std::string> texts;
  for (const Report& made : reports()) texts.push_back(made.text);
  return texts;
}

std::string report(std::uint32_t status, std::string_view function, int line) {
  char number[16];
  std::snprintf(number, sizeof number, "%x", static_cast<unsigned>(status));
  return "ERROR STATUS: 0x" + std::string(number) + " (" + std::string(function) + "/" +
         std::to_string(line) + ")\n";
}

rov_node_id_t id(std::uint32_t node) {
  const std::uint8_t bytes[16] = {
      static_cast<std::uint8_t>(node >> 24), static_cast<std::uint8_t>(node >> 16),
      static_cast<std::uint8_t>(node >> 8), static_cast<std::uint8_t>(node)};
  rov_node_id_t made;
  std::memcpy(&made, bytes, sizeof made);
  return made;
}

std::uint32_t node_of(const rov_node_id_t& id) {
  std::uint8_t bytes[4];
  std::memcpy(bytes, &id, sizeof bytes);
  return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
         static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

}  // namespace fake
