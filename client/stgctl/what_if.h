#pragma once

#include "client/admin/stats.h"
#include "client/stgctl/context.h"

namespace stgctl {

/// The curves of the versions in the tree.
/// @throws Failure kLockTimeout, kFailed or kInterrupted if not every folder could be read.
admin::Forecast forecast_of(Context& context, const admin::Scope& scope, bool by_access,
                            std::int64_t now);

/// "to reach 5.0 GiB the limit is 37 days: ..."
std::string sentence_for(std::uint64_t target, const admin::LimitFor& limit);

}  // namespace stgctl
