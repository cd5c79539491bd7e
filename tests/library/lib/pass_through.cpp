#include "tests/library/lib/pass_through.h"

#include <algorithm>
#include <ostream>
#include <type_traits>
#include <utility>

#include "qim.h"
#include "tests/support/fake/fake.h"

namespace lib_tests {
namespace {

// The argument at a place: the low half differs from place to place, the high half is there to be
// lost where somebody narrows it.
template <class T>
T argument(std::size_t place, Memory& memory) {
  if constexpr (std::is_same_v<T, rov_logger_fn>) {
    return fake::logger;
  } else if constexpr (std::is_pointer_v<T>) {
    return static_cast<T>(memory.at(place));
  } else {
    return static_cast<T>(0xa1a2a3a4b1b2b300u + place);
  }
}

template <class... A, std::size_t... Place>
std::uint32_t call_with(std::uint32_t (*function)(A...), std::index_sequence<Place...>,
                        Memory& memory, std::vector<fake::Arg>* args) {
  *args = {fake::Arg(argument<A>(Place, memory))...};
  return function(argument<A>(Place, memory)...);
}

template <class... A>
std::uint32_t call_any(std::uint32_t (*function)(A...), Memory& memory,
                       std::vector<fake::Arg>* args) {
  return call_with(function, std::index_sequence_for<A...>(), memory, args);
}

template <auto function>
std::uint32_t call(Memory& memory, std::vector<fake::Arg>* args) {
  return call_any(function, memory, args);
}

void context_first(std::vector<fake::Arg>* args) {
  args->front() = kContextLib;
}

void zero_third(std::vector<fake::Arg>* args) {
  args->insert(args->begin() + 2, fake::Arg(0u));
}

constexpr PassThrough kRows[] = {
    {"qim_db_init_parms_init", "rov_db_init_parms_init", call<qim_db_init_parms_init>},
    {"qim_db_set_ps_sizes", "rov_db_set_ps_sizes", call<qim_db_set_ps_sizes>},
    {"qim_lib_init_locks", "rov_lib_init_locks", call<qim_lib_init_locks>, context_first, false,
     true},
    {"qim_db_ntf", "rov_db_ntf", call<qim_db_ntf>},
    {"qim_db_usr_group", "rov_db_usr_group", call<qim_db_usr_group>},
    {"qim_db_reg_logger", "rov_db_reg_logger", call<qim_db_reg_logger>, nullptr, false, true},
    {"qim_db_debug", "rov_db_debug", call<qim_db_debug>, nullptr, false, true},
    {"qim_db_show_internal", "rov_db_show_internal", call<qim_db_show_internal>},
    {"qim_db_ses_exists", "rov_db_ses_exists", call<qim_db_ses_exists>},
    {"qim_db_ses_lock_grant", "rov_db_ses_lock_grant", call<qim_db_ses_lock_grant>},
    {"qim_db_priv_write", "rov_db_priv_write", call<qim_db_priv_write>},
    {"qim_db_priv_delete", "rov_db_priv_delete", call<qim_db_priv_delete>},
    {"qim_db_priv_post", "rov_db_priv_post", call<qim_db_priv_post>},
    {"qim_db_priv_recover2", "rov_db_priv_recover2", call<qim_db_priv_recover2>},
    {"qim_db_priv_recover", "rov_db_priv_recover2", call<qim_db_priv_recover>, zero_third},
    {"qim_db_priv_read", "rov_db_priv_read", call<qim_db_priv_read>},
    {"qim_process_msg", "rov_process_msg", call<qim_process_msg>},
    {"qim_db_snapshot", "rov_db_snapshot", call<qim_db_snapshot>},
    {"qim_db_uri_snapshot", "rov_db_uri_snapshot", call<qim_db_uri_snapshot>},
    {"qim_db_uri_rm", "rov_db_uri_rm", call<qim_db_uri_rm>},
    {"qim_msg_is_qim", "rov_msg_is_rov", call<qim_msg_is_qim>, nullptr, true},
    {"qim_ses_open_ro", "rov_ses_open_ro", call<qim_ses_open_ro>},
    {"qim_ses_orig_handle", "rov_ses_orig_handle", call<qim_ses_orig_handle>},
    {"qim_ses_timeout", "rov_ses_timeout", call<qim_ses_timeout>},
    {"qim_ses_priv_write", "rov_ses_priv_write", call<qim_ses_priv_write>},
    {"qim_ses_priv_delete", "rov_ses_priv_delete", call<qim_ses_priv_delete>},
    {"qim_ses_priv_recover", "rov_ses_priv_recover", call<qim_ses_priv_recover>},
    {"qim_ses_priv_recover2", "rov_ses_priv_recover2", call<qim_ses_priv_recover2>},
    {"qim_ses_priv_read", "rov_ses_priv_read", call<qim_ses_priv_read>},
    {"qim_ps_datasize", "rov_ps_datasize", call<qim_ps_datasize>},
    {"qim_ps_data", "rov_ps_data", call<qim_ps_data>},
    {"qim_err_getprev", "rov_err_getprev", call<qim_err_getprev>},
    {"qim_err_retry_ok", "rov_err_retry_ok", call<qim_err_retry_ok>, nullptr, true},
    {"qim_cl_err_retry_ok", "rov_cl_err_retry_ok", call<qim_cl_err_retry_ok>, nullptr, true},
    {"qim_usr_id_info", "rov_usr_id_info", call<qim_usr_id_info>},
};

}  // namespace

void Memory::fill(std::uint8_t first) {
  for (auto& place : places_) place.fill(first++);
}

bool Memory::holds(std::uint8_t first) const {
  for (const auto& place : places_) {
    if (std::count(place.begin(), place.end(), first++) != kRoom) return false;
  }
  return true;
}

fake::Call PassThrough::expected(std::vector<fake::Arg> args) const {
  if (adjust != nullptr) adjust(&args);
  return {target, std::move(args), {}};
}

void PrintTo(const PassThrough& row, std::ostream* os) {
  *os << row.name;
}

std::span<const PassThrough> pass_throughs() {
  return kRows;
}

}  // namespace lib_tests
