#include "tests/fuzz/Fuzzing.h"
#include "tools/collector/PageRequest.h"
#include "tools/collector/Refusal.h"
#include "tools/collector/Store.h"

// Whatever is asked of the page's server, it is understood or refused.

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  using namespace kx::collector;
  const auto texts = kx::parts(bytes, size, 4);
  const PageRequest request{
      "GET", texts[0], {{texts[1], texts[2]}, {"Host", texts[2]}, {"Origin", texts[3]}}, {}};
  try {
    checkWhereFrom(request, 8480, {"collector.example"});
    kx::require(request.value("Host").has_value(), "what is let in says whom it asks");
  } catch (const Refusal &refusal) {
    kx::require(refusal.status() == 403, "who may not ask is told so");
  }
  kx::require(texts[0].compare(0, pathOf(texts[0]).size(), pathOf(texts[0])) == 0,
              "a path begins the target");
  try {
    Query query(texts[0]);
    const auto limit = query.number("limit", 1, 1000);
    kx::require(!limit || (*limit >= 1 && *limit <= 1000), "a number keeps its bounds");
    const auto choice = query.choice("order", {"newest", "oldest"});
    kx::require(!choice || *choice < 2, "a choice is one of those");
    query.boolean("wait");
    const RecordFilter filter = query.filter();
    query.expectNoMore();
    // Which a store takes.
    static Store store;
    store.requests(filter, 10);
  } catch (const Refusal &refusal) {
    kx::require(refusal.status() == 400, "what is not understood is a bad request");
  }
  return 0;
}
