#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/collector/Record.h"
#include "tools/collector/Store.h"

namespace kx::collector {

/// A request to the page's server.
struct PageRequest {
  std::string method;
  std::string target;  ///< as sent: path and query
  HeaderFields fields;
  std::string body;

  /// The value of the header field of that name, in any case of letters. Absent if there is none, or several.
  std::optional<std::string> value(std::string_view name) const;
  bool has(std::string_view name) const;
};

/// The parameters behind the question mark of a target. Each is taken at most once; what nobody has taken is
/// a mistake. Whatever is wrong is a Refusal with status 400.
class Query {
 public:
  explicit Query(std::string_view target);

  /// An empty one is none, as in all that follow.
  std::optional<std::string> text(std::string_view name);
  std::optional<std::uint64_t> number(std::string_view name, std::uint64_t minimum, std::uint64_t maximum);
  std::optional<bool> boolean(std::string_view name);
  /// Which of these texts, by its place.
  std::optional<std::size_t> choice(std::string_view name, const std::vector<std::string_view> &choices);

  /// All parameters of a filter.
  RecordFilter filter();
  /// Has to follow when all that are known were taken.
  void expectNoMore() const;

 private:
  std::vector<std::pair<std::string, std::string>> parameters_;
};

/// "/api/requests" of "/api/requests?limit=1"
std::string_view pathOf(std::string_view target);

/// Throws a Refusal with status 403 for a request that another web site, or another name for this machine,
/// may be behind: its Host has to be this machine's own name, or one of `names` (IPv6 addresses in brackets),
/// with that port, its Origin absent or the page's own.
void checkWhereFrom(const PageRequest &request, std::uint16_t port,
                    const std::vector<std::string> &names = {});

}  // namespace kx::collector
