#include "client/admin/forecast.h"

#include <algorithm>
#include <array>

namespace admin {

namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kYear = 365 * kDay;

constexpr std::array<AgeLimit, 12> kLimits = {{{kDay, "1d"},
                                               {7 * kDay, "7d"},
                                               {14 * kDay, "14d"},
                                               {30 * kDay, "30d"},
                                               {60 * kDay, "60d"},
                                               {90 * kDay, "90d"},
                                               {180 * kDay, "180d"},
                                               {kYear, "1y"},
                                               {2 * kYear, "2y"},
                                               {3 * kYear, "3y"},
                                               {5 * kYear, "5y"},
                                               {10 * kYear, "10y"}}};

class ForecastSink final : public InventorySink {
 public:
  ForecastSink(const ForecastOptions& options, const FailureSink& failed, Forecast& forecast)
      : m_options(options), m_failed(failed), m_forecast(forecast) {}
  bool holding(const Holding& holding) override {
    m_forecast.add(holding, m_options);
    return true;
  }
  void failed(const std::string& location, const std::string& why) override {
    m_failed(location, why);
  }

 private:
  const ForecastOptions& m_options;
  const FailureSink& m_failed;
  Forecast& m_forecast;
};

}  // namespace

std::span<const AgeLimit> age_limits() { return kLimits; }

void Forecast::add(const Holding& holding, const ForecastOptions& options) {
  if (holding.kind == HoldingKind::kPart) {
    m_bytes += holding.info.size;
    return;
  }
  end_version();
  const bool is_same_document = m_version && m_version->owner == holding.owner &&
                                m_version->bucket == holding.bucket &&
                                m_version->name == holding.name;
  if (m_version && !is_same_document) end_document();
  if (m_owners.empty() || m_owners.back().owner != holding.owner)
    m_owners.push_back({holding.owner, {}, std::vector<Loss>(kLimits.size())});
  m_age = options.now - (options.by_access ? holding.info.access_time : holding.info.modify_time);
  m_bytes = holding.info.size;
  m_youngest = is_same_document ? std::min(m_youngest, m_age) : m_age;
  m_version = holding;
}

void Forecast::count(Curve& curve, std::int64_t age, std::uint64_t Loss::*what,
                     std::uint64_t amount) {
  curve.there.*what += amount;
  for (std::size_t i = 0; i < kLimits.size() && age > kLimits[i].seconds; ++i)
    curve.losses[i].*what += amount;
}

void Forecast::end_version() {
  if (!m_version) return;
  m_versions.push_back({m_age, m_bytes});
  count(m_owners.back(), m_age, &Loss::versions, 1);
  count(m_owners.back(), m_age, &Loss::bytes, m_bytes);
}

void Forecast::end_document() {
  m_documents.push_back(m_youngest);
  count(m_owners.back(), m_youngest, &Loss::documents, 1);
}

void Forecast::finish() {
  end_version();
  if (m_version) end_document();
  m_version.reset();
  m_all.losses.resize(kLimits.size());
  const auto add = [](Loss& sum, const Loss& loss) {
    sum.versions += loss.versions;
    sum.documents += loss.documents;
    sum.bytes += loss.bytes;
  };
  for (const Curve& curve : m_owners) {
    add(m_all.there, curve.there);
    for (std::size_t i = 0; i < kLimits.size(); ++i) add(m_all.losses[i], curve.losses[i]);
  }
  std::sort(m_owners.begin(), m_owners.end(), [](const Curve& one, const Curve& other) {
    if (one.there.bytes != other.there.bytes) return one.there.bytes > other.there.bytes;
    return one.owner < other.owner;
  });
  std::sort(m_versions.begin(), m_versions.end(),
            [](const Aged& one, const Aged& other) { return one.age > other.age; });
}

Loss Forecast::loss_beyond(std::int64_t limit) const {
  Loss loss;
  for (const Aged& each : m_versions) {
    if (each.age <= limit) break;
    ++loss.versions;
    loss.bytes += each.bytes;
  }
  loss.documents = static_cast<std::uint64_t>(std::count_if(
      m_documents.begin(), m_documents.end(), [limit](std::int64_t age) { return age > limit; }));
  return loss;
}

LimitFor Forecast::limit_for(std::uint64_t target) const {
  LimitFor result;
  result.kept = m_all.there.bytes;
  result.is_needless = result.kept <= target;
  if (result.is_needless) return result;
  std::uint64_t kept = m_all.there.bytes;
  for (const Aged& each : m_versions) {
    kept -= each.bytes;
    if (kept > target) continue;
    // This one has to go, so the limit is below its age.
    const std::int64_t most = each.age - 1;
    if (most < 0) return result;
    const std::int64_t unit = most >= 2 * kDay ? kDay : most >= 2 * kHour ? kHour : 1;
    result.limit = most / unit * unit;
    result.loss = loss_beyond(*result.limit);
    result.kept = m_all.there.bytes - result.loss.bytes;
    return result;
  }
  return result;
}

EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast) {
  InventoryOptions asked;
  asked.scope = options.scope;
  if (!asked.scope.area) asked.scope.area = Area::kDocs;
  asked.locking = options.locking;
  asked.stop = options.stop;
  asked.on_folder = options.on_folder;
  ForecastSink sink(options, failed, forecast);
  const EntryFailures failures = take_inventory(tree, asked, sink);
  forecast.finish();
  return failures;
}

}  // namespace admin
