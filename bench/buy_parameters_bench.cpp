// Buy-parameter codec and intercept against naive versions that compile their regular expression on every call.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "base/regex.h"
#include "service/buy_parameters.h"
#include "store/purchase_intercept.h"
#include "store/text_purchase.h"

namespace {

const std::string kParams = "productType=C&price=0&salableAdamId=284882215&pricingParameters=SWUPD&appExtVrsId="
                            "838193928&clientBuyId=1&installed=1";
constexpr int kBatchSize = 1000;
// The store's purchases compare by identity, so the batch does too.
constexpr auto kStorePurchaseEquality = qv::PurchaseEquality::SameObject;

std::string naiveExtract(std::string_view params, std::string_view pattern) {
    const auto regex = qv::Regex::compile(pattern);
    const auto match = regex->firstMatch(params);
    return match ? std::string(match->group(params, 1)) : std::string();
}

std::string naiveSetVersion(std::string_view params, std::string_view version) {
    const auto regex = qv::Regex::compile(R"(appExtVrsId=([\d]*))", qv::RegexCase::Insensitive);
    std::string rewritten = regex->replaceAll(params, "appExtVrsId=" + std::string(version) + "$2");
    for (auto at = rewritten.find("&installed=1"); at != std::string::npos; at = rewritten.find("&installed=1", at)) {
        rewritten.erase(at, std::string_view("&installed=1").size());
    }
    return rewritten;
}

std::vector<qv::PurchaseHandle> naiveIntercept(const std::vector<qv::PurchaseHandle> &purchases,
                                               qv::PendingDowngrades &pending, qv::PurchaseMaker &maker) {
    std::vector<qv::PurchaseHandle> batch = purchases;
    for (const auto &purchase : purchases) {
        const std::string params = purchase->buyParameters();
        const std::string store = naiveExtract(params, R"(salableAdamId=([\d]*))");
        auto value = pending.take(store);
        if (!value) {
            continue;
        }
        if (*value == "previous") {
            value = naiveExtract(params, R"(appExtVrsId=([\d]*))") + "&qvprevious=1";
        }
        auto fresh = maker.purchaseWithBuyParameters(qv::rewrittenPurchaseBuyParameters(store, *value));
        for (auto &slot : batch) {
            if (purchase->isEqualTo(*slot)) {
                slot = fresh;
                break;
            }
        }
    }
    return batch;
}

// Every purchase is for its own app; every other one has a pending entry, a quarter of them "previous".
struct Batch {
    std::vector<qv::PurchaseHandle> purchases;
    std::vector<std::pair<std::string, std::string>> entries;

    explicit Batch(int size) {
        for (int i = 0; i < size; ++i) {
            const std::string store = std::to_string(100000000 + i);
            purchases.push_back(std::make_shared<qv::TextPurchase>(
                "productType=C&price=0&salableAdamId=" + store +
                    "&pricingParameters=SWUPD&appExtVrsId=838193928&clientBuyId=1&installed=1",
                kStorePurchaseEquality));
            if (i % 2 == 0) {
                entries.emplace_back(store, i % 4 == 0 ? "previous" : "838000000");
            }
        }
    }
    void fill(qv::PendingDowngrades &pending) const {
        for (const auto &[store, value] : entries) {
            pending.set(store, value);
        }
    }
};

void BM_ExtractStoreIdentifier(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(qv::appIdentifierFromBuyParameters(kParams));
    }
}
BENCHMARK(BM_ExtractStoreIdentifier);

void BM_ExtractStoreIdentifierNaive(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(naiveExtract(kParams, R"(salableAdamId=([\d]*))"));
    }
}
BENCHMARK(BM_ExtractStoreIdentifierNaive);

void BM_SetVersion(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(qv::buyParametersWithVersion(kParams, "812345678"));
    }
}
BENCHMARK(BM_SetVersion);

void BM_SetVersionNaive(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(naiveSetVersion(kParams, "812345678"));
    }
}
BENCHMARK(BM_SetVersionNaive);

template <class Intercept> void runIntercept(benchmark::State &state, int size, Intercept intercept) {
    const Batch batch(size);
    qv::PendingDowngrades pending;
    qv::TextPurchaseMaker maker(kStorePurchaseEquality);
    for (auto _ : state) {
        state.PauseTiming();
        pending.clear();
        batch.fill(pending);
        state.ResumeTiming();
        benchmark::DoNotOptimize(intercept(batch.purchases, pending, maker));
    }
    state.SetItemsProcessed(state.iterations() * size);
}

void BM_Intercept1000(benchmark::State &state) {
    runIntercept(state, kBatchSize, qv::addPurchasesIntercept);
}
BENCHMARK(BM_Intercept1000)->Unit(benchmark::kMicrosecond);

void BM_Intercept1000Naive(benchmark::State &state) {
    runIntercept(state, kBatchSize, naiveIntercept);
}
BENCHMARK(BM_Intercept1000Naive)->Unit(benchmark::kMicrosecond);

// One purchase rewritten: the cost the store's purchase thread pays per downgrade.
void BM_InterceptOneRewrite(benchmark::State &state) {
    const std::vector<qv::PurchaseHandle> batch{std::make_shared<qv::TextPurchase>(kParams, kStorePurchaseEquality)};
    qv::PendingDowngrades pending;
    qv::TextPurchaseMaker maker(kStorePurchaseEquality);
    for (auto _ : state) {
        pending.set("284882215", "838000000");
        benchmark::DoNotOptimize(qv::addPurchasesIntercept(batch, pending, maker));
    }
}
BENCHMARK(BM_InterceptOneRewrite);

} // namespace

BENCHMARK_MAIN();
