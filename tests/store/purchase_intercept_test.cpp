// Purchase intercept and pending-downgrade table: which purchases are replaced, where, and by what.
#include "store/purchase_intercept.h"

#include "fakes/fake_purchase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>

namespace qv {
namespace {

std::string rewritten(const std::string &store, const std::string &slot) {
    return "productType=C&price=0&salableAdamId=" + store + "&pricingParameters=SWUPD&appExtVrsId=" + slot +
           "&clientBuyId=1";
}

struct InPurchase {
    std::string params;
    std::string tag;
};

struct InterceptCase {
    const char *name;
    std::vector<InPurchase> batch;
    std::map<std::string, std::string> pending;
    // Per output slot: the buy parameters expected, or "" for "the incoming object at this index, untouched".
    std::vector<std::string> expected;
    std::map<std::string, std::string, std::less<>> pendingAfter;
};

class Intercept : public ::testing::TestWithParam<InterceptCase> {};

TEST_P(Intercept, RewritesMatchingPurchases) {
    const auto &c = GetParam();
    std::vector<PurchaseHandle> batch;
    batch.reserve(c.batch.size());
    for (const auto &purchase : c.batch) {
        batch.push_back(std::make_shared<FakePurchase>(purchase.params, purchase.tag));
    }
    PendingDowngrades pending;
    for (const auto &[store, value] : c.pending) {
        pending.set(store, value);
    }
    FakeMaker maker;
    const auto queued = addPurchasesIntercept(batch, pending, maker);
    ASSERT_EQ(queued.size(), c.expected.size());
    for (std::size_t i = 0; i < queued.size(); ++i) {
        if (c.expected[i].empty()) {
            EXPECT_EQ(queued[i], batch[i]) << "slot " << i;
        } else {
            EXPECT_NE(queued[i], batch[i]) << "slot " << i;
            EXPECT_EQ(queued[i]->buyParameters(), c.expected[i]) << "slot " << i;
        }
    }
    EXPECT_EQ(pending.snapshot(), c.pendingAfter);
}

const std::string kApp123 = "productType=C&salableAdamId=123&appExtVrsId=456&clientBuyId=1&installed=1";
const std::string kApp124 = "productType=C&salableAdamId=124&appExtVrsId=9";

INSTANTIATE_TEST_SUITE_P(
    Batches, Intercept,
    ::testing::Values(
        InterceptCase{"Empty", {}, {{"123", "400"}}, {}, {{"123", "400"}}},
        InterceptCase{
            "ChosenVersion", {{kApp123, "a"}, {kApp124, "b"}}, {{"123", "400"}}, {rewritten("123", "400"), ""}, {}},
        InterceptCase{"PreviousKeepsCurrentVersionAndFlagsIt",
                      {{kApp123, "a"}},
                      {{"123", "previous"}, {"999", "1"}},
                      {rewritten("123", "456&qvprevious=1")},
                      {{"999", "1"}}},
        InterceptCase{"OneEntryRewritesOnlyTheFirstPurchaseOfTheApp",
                      {{kApp124, "x"}, {kApp123, "a"}, {kApp123, "b"}},
                      {{"123", "400"}},
                      {"", rewritten("123", "400"), ""},
                      {}},
        // The fresh purchase goes where the first purchase equal to the incoming one sits.
        InterceptCase{"ReplacesFirstEqualElement",
                      {{kApp124, "same"}, {kApp123, "same"}},
                      {{"123", "400"}},
                      {rewritten("123", "400"), ""},
                      {}},
        InterceptCase{"PurchaseWithoutStoreIdentifierUsesTheEmptyKey",
                      {{"productType=C", "a"}, {kApp124, "b"}},
                      {{"", "5"}, {"124", "6"}},
                      {rewritten("", "5"), rewritten("124", "6")},
                      {}},
        InterceptCase{"NoEntryNoChange", {{kApp123, "a"}}, {{"12", "1"}}, {""}, {{"12", "1"}}}),
    [](const auto &info) { return std::string(info.param.name); });

// A maker that makes nothing, throws, or makes a purchase equal to nothing in the batch (so it has no place).
class BrokenMaker final : public PurchaseMaker {
  public:
    enum class Fault { MakesNothing, Throws, MakesUnplaceable };
    explicit BrokenMaker(Fault fault) : fault_(fault) {}
    PurchaseHandle purchaseWithBuyParameters(const std::string &params) override {
        switch (fault_) {
        case Fault::MakesNothing:
            return nullptr;
        case Fault::Throws:
            throw std::runtime_error("store refused");
        case Fault::MakesUnplaceable:
            break;
        }
        return std::make_shared<FakePurchase>(params, "fresh");
    }

  private:
    Fault fault_;
};

// Incoming purchases that equal nothing, not even themselves, as a store object with a broken isEqual: might.
class UnequalPurchase final : public Purchase {
  public:
    explicit UnequalPurchase(std::string params) : params_(std::move(params)) {}
    std::string buyParameters() const override { return params_; }
    bool isEqualTo(const Purchase & /*other*/) const override { return false; }

  private:
    std::string params_;
};

struct FailureCase {
    const char *name;
    std::optional<BrokenMaker::Fault> fault; // nothing: a working maker
    bool unequalIncoming;
    bool committed;
};

class InterceptFailure : public ::testing::TestWithParam<FailureCase> {};

// Whatever goes wrong before the batch is handed on, the store's purchase goes out unchanged and the downgrade
// stays pending for the next attempt.
TEST_P(InterceptFailure, LeavesTheEntryPendingAndThePurchaseUnchanged) {
    const FailureCase &c = GetParam();
    PendingDowngrades pending;
    pending.set("123", "400");
    const std::vector<PurchaseHandle> batch{
        nullptr, c.unequalIncoming ? PurchaseHandle(std::make_shared<UnequalPurchase>(kApp123))
                                   : PurchaseHandle(std::make_shared<FakePurchase>(kApp123, "a"))};
    FakeMaker working;
    std::optional<BrokenMaker> broken;
    if (c.fault) {
        broken.emplace(*c.fault);
    }
    PurchaseMaker &maker = broken ? static_cast<PurchaseMaker &>(*broken) : working;
    try {
        InterceptedBatch intercepted = interceptPurchases(batch, pending, maker);
        if (c.committed) {
            EXPECT_EQ(intercepted.purchases(), batch);
            intercepted.commit();
        }
    } catch (const std::runtime_error &) {
        EXPECT_EQ(c.fault, BrokenMaker::Fault::Throws);
    }
    EXPECT_EQ(pending.snapshot(), (std::map<std::string, std::string, std::less<>>{{"123", "400"}}));

    FakeMaker later;
    const std::vector<PurchaseHandle> retry{std::make_shared<FakePurchase>(kApp123, "b")};
    EXPECT_EQ(addPurchasesIntercept(retry, pending, later).front()->buyParameters(), rewritten("123", "400"));
    EXPECT_TRUE(pending.snapshot().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Failures, InterceptFailure,
    ::testing::Values(FailureCase{"MakerMakesNothing", BrokenMaker::Fault::MakesNothing, false, true},
                      FailureCase{"MakerThrows", BrokenMaker::Fault::Throws, false, false},
                      FailureCase{"FreshPurchaseHasNoPlace", BrokenMaker::Fault::MakesUnplaceable, true, true},
                      FailureCase{"BatchDroppedBeforeCommit", std::nullopt, false, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(PendingTable, AnEntrySetAfreshWhileClaimedOutlivesTheOldClaim) {
    PendingDowngrades pending;
    pending.set("123", "400");
    const auto claim = pending.claim("123");
    ASSERT_TRUE(claim);
    EXPECT_FALSE(pending.claim("123"));
    pending.set("123", "500");
    pending.consume(*claim);
    EXPECT_EQ(pending.find("123"), "500");
}

// A clock the test moves by hand.
struct FakeClock {
    std::chrono::steady_clock::time_point now{};
    PendingDowngrades::Clock clock() {
        return [this] { return now; };
    }
};

struct LifetimeCase {
    const char *name;
    std::chrono::seconds setAgo;    // how long before the purchase the entry was set
    std::chrono::seconds refreshed; // how long before the purchase it was set again; 0: never
    bool rewritten;
};

class PendingLifetime : public ::testing::TestWithParam<LifetimeCase> {};

// A purchase that comes too long after its entry was set goes through unchanged, and the entry is gone.
TEST_P(PendingLifetime, AnEntryRewritesOnlyPurchasesWithinItsLifetime) {
    const LifetimeCase &c = GetParam();
    FakeClock time;
    PendingDowngrades pending(time.clock());
    const auto purchaseAt = time.now + std::chrono::hours(24);
    time.now = purchaseAt - c.setAgo;
    pending.set("123", "400");
    if (c.refreshed.count() != 0) {
        time.now = purchaseAt - c.refreshed;
        pending.set("123", "400");
    }
    time.now = purchaseAt;
    FakeMaker maker;
    const std::vector<PurchaseHandle> batch{std::make_shared<FakePurchase>(kApp123, "a")};
    const auto queued = addPurchasesIntercept(batch, pending, maker);
    EXPECT_EQ(queued.front() != batch.front(), c.rewritten);
    EXPECT_TRUE(pending.snapshot().empty());
}

using std::chrono::minutes;
using std::chrono::seconds;

INSTANTIATE_TEST_SUITE_P(Ages, PendingLifetime,
                         ::testing::Values(LifetimeCase{"SecondsOld", seconds(3), seconds(0), true},
                                           LifetimeCase{"JustInside", minutes(10) - seconds(1), seconds(0), true},
                                           LifetimeCase{"JustOver", minutes(10), seconds(0), false},
                                           LifetimeCase{"DaysOld", minutes(3 * 24 * 60), seconds(0), false},
                                           LifetimeCase{"SetAgainRecently", minutes(60), seconds(30), true}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(PendingTable, DroppingASubmissionsEntryLeavesOneSetSince) {
    PendingDowngrades pending;
    const auto failed = pending.set("123", "400");
    pending.drop("123", failed);
    EXPECT_EQ(pending.find("123"), std::nullopt);

    const auto older = pending.set("123", "400");
    pending.set("123", "500");
    pending.drop("123", older);
    EXPECT_EQ(pending.find("123"), "500");
}

// Writers fill the table while two store threads intercept batches for the same apps: every entry must rewrite
// exactly one purchase, however the threads interleave.
TEST(PendingTable, EachEntryIsConsumedExactlyOnceAcrossThreads) {
    constexpr int kWriters = 4;
    constexpr int kEntriesPerWriter = 200;
    constexpr int kTotal = kWriters * kEntriesPerWriter;
    constexpr int kChunk = 50;
    constexpr int kMaxPasses = 10000;
    std::vector<PurchaseHandle> all;
    all.reserve(kTotal);
    for (int i = 0; i < kTotal; ++i) {
        all.push_back(std::make_shared<FakePurchase>("salableAdamId=" + std::to_string(i + 1), std::to_string(i)));
    }
    PendingDowngrades pending;
    FakeMaker maker;
    std::atomic<int> replaced{0};
    std::vector<std::thread> threads;
    threads.reserve(kWriters + 2);
    for (int w = 0; w < kWriters; ++w) {
        threads.emplace_back([&, w] {
            for (int k = 0; k < kEntriesPerWriter; ++k) {
                pending.set(std::to_string(w * kEntriesPerWriter + k + 1), "7");
            }
        });
    }
    for (int consumer = 0; consumer < 2; ++consumer) {
        threads.emplace_back([&] {
            for (int pass = 0; pass < kMaxPasses && replaced.load() < kTotal; ++pass) {
                for (int first = 0; first < kTotal; first += kChunk) {
                    const std::vector<PurchaseHandle> batch(all.begin() + first, all.begin() + first + kChunk);
                    const auto queued = addPurchasesIntercept(batch, pending, maker);
                    for (std::size_t i = 0; i < batch.size(); ++i) {
                        replaced += queued[i] != batch[i] ? 1 : 0;
                    }
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(replaced.load(), kTotal);
    EXPECT_EQ(maker.made.load(), kTotal);
    EXPECT_TRUE(pending.snapshot().empty());
}

} // namespace
} // namespace qv
