// Opening and closing sessions.
#include "bench/database.h"
#include "bench/raw_engine.h"
#include "bench/workloads.h"

namespace bench {

using benchmark::State;

void run_sessions(Harness& harness) {
  const std::string name = "session open + close";
  if (!harness.wanted(name)) return;
  const uint32_t nodes = sizes_of(harness.options()).small;
  const uint32_t db = prepared({nodes}).database.handle();
  RawEngine& engine = raw_engine(nodes);
  const auto session = [db](State& state) {
    for (auto _ : state) {
      uint32_t ses = 0;
      if (qim_ses_open_ro(db, &ses) != 0 || rov_ses_close(ses) != 0) {
        state.SkipWithError("a session can't be opened");
      }
    }
  };
  const auto renew = [&engine](State& state) {
    for (auto _ : state) engine.renew();
  };
  harness.run({name,
               {{"qim_ses_open_ro + rov_ses_close", session}, {"engine renew + reset", renew}},
               {{"qim_ses_open_ro + rov_ses_close", "engine renew + reset", Rule::kExtra, 100}}});
}

}  // namespace bench
