// Store-like purchases that compare by tag, and a maker that counts the fresh purchases it makes.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "store/purchase_intercept.h"

namespace qv {

// Equal when the tags match, so distinct objects can be equal as the store's purchases can.
class FakePurchase final : public Purchase {
  public:
    FakePurchase(std::string params, std::string tag) : params_(std::move(params)), tag_(std::move(tag)) {}
    std::string buyParameters() const override { return params_; }
    bool isEqualTo(const Purchase &other) const override {
        const auto *fake = dynamic_cast<const FakePurchase *>(&other);
        return fake != nullptr && fake->tag_ == tag_;
    }

  private:
    std::string params_;
    std::string tag_;
};

class FakeMaker final : public PurchaseMaker {
  public:
    PurchaseHandle purchaseWithBuyParameters(const std::string &params) override {
        ++made;
        return std::make_shared<FakePurchase>(params, "fresh" + std::to_string(made));
    }
    std::atomic<int> made{0};
};

} // namespace qv
