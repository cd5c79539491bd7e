// Commands to the kernel's packet filter, and what it answers.
#include "processes/enforce/filter.h"

#include <nftables/libnftables.h>

#include "policy/base/text.h"

namespace enforce {

namespace {

// What the library says in several lines, as one.
std::string one_line(const char* text) {
  std::string line;
  for (const char* c = text; *c != '\0' && line.size() < 400; c++) {
    if (*c != '\n') {
      line += *c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  return qimctl::harmless(line);
}

}  // namespace

void Filter::Free::operator()(nft_ctx* context) const {
  nft_ctx_free(context);
}

Filter::Filter() : context_(nft_ctx_new(NFT_CTX_DEFAULT)) {
  if (context_ == nullptr) throw FilterError("libnftables can't be used");
  nft_ctx_output_set_flags(
      context_.get(), NFT_CTX_OUTPUT_JSON | NFT_CTX_OUTPUT_HANDLE | NFT_CTX_OUTPUT_NUMERIC_ALL);
  nft_ctx_buffer_error(context_.get());
}

void Filter::run(const std::string& commands) const {
  if (nft_run_cmd_from_buffer(context_.get(), commands.c_str()) != 0)
    throw FilterError(one_line(nft_ctx_get_error_buffer(context_.get())));
}

}  // namespace enforce
