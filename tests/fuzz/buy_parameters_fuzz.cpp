// Fuzz target: reading, rewriting and intercepting arbitrary buy-parameter strings must never crash and must
// keep the codec's promises (identifiers come from the text, batches keep their size, entries are used once).
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "service/buy_parameters.h"
#include "store/purchase_intercept.h"
#include "store/text_purchase.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

// Input: the first line is a version (or "previous"), every further line one purchase's buy parameters.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t firstBreak = input.find('\n');
    const std::string_view version = input.substr(0, firstBreak);
    const std::string_view rest =
        firstBreak == std::string_view::npos ? std::string_view() : input.substr(firstBreak + 1);

    std::vector<qv::PurchaseHandle> batch;
    qv::PendingDowngrades pending;
    std::size_t start = 0;
    while (start < rest.size()) {
        const std::size_t end = std::min(rest.find('\n', start), rest.size());
        const std::string params(rest.substr(start, end - start));
        start = end + 1;

        const std::string store = qv::appIdentifierFromBuyParameters(params);
        check(store.empty() || params.find("salableAdamId=" + store) != std::string::npos);
        const std::string current = qv::versionFromBuyParameters(params);
        check(current.empty() || params.find("appExtVrsId=" + current) != std::string::npos);
        check(qv::buyParametersWithVersion(params, version).has_value());

        pending.set(store, std::string(version));
        batch.push_back(std::make_shared<qv::TextPurchase>(params));
    }

    const std::size_t entries = pending.snapshot().size();
    qv::TextPurchaseMaker maker;
    const auto queued = qv::addPurchasesIntercept(batch, pending, maker);
    check(queued.size() == batch.size());
    std::size_t replaced = 0;
    for (std::size_t i = 0; i < queued.size(); ++i) {
        replaced += queued[i] != batch[i] ? 1 : 0;
    }
    // Every distinct store identifier had an entry, so each was used by exactly one purchase.
    check(replaced == entries);
    check(pending.snapshot().empty());
    return 0;
}
