// A purchase that is nothing but its buy-parameter text, and the maker of such purchases: the store-free
// PurchaseMaker used by the CLI, the fuzzer and the benchmark.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "store/purchase_intercept.h"

namespace qv {

enum class PurchaseEquality {
    SameText,   // purchases given as text (the CLI): equal when they carry the same buy parameters
    SameObject, // like the store's purchases, which compare by identity
};

class TextPurchase final : public Purchase {
  public:
    explicit TextPurchase(std::string buyParameters, PurchaseEquality equality = PurchaseEquality::SameText)
        : buyParameters_(std::move(buyParameters)), equality_(equality) {}
    std::string buyParameters() const override { return buyParameters_; }
    bool isEqualTo(const Purchase &other) const override {
        if (this == &other) {
            return true;
        }
        if (equality_ == PurchaseEquality::SameObject) {
            return false;
        }
        const auto *text = dynamic_cast<const TextPurchase *>(&other);
        return text != nullptr ? text->buyParameters_ == buyParameters_ : other.buyParameters() == buyParameters_;
    }

  private:
    std::string buyParameters_;
    PurchaseEquality equality_;
};

class TextPurchaseMaker final : public PurchaseMaker {
  public:
    explicit TextPurchaseMaker(PurchaseEquality equality = PurchaseEquality::SameText) : equality_(equality) {}
    PurchaseHandle purchaseWithBuyParameters(const std::string &buyParameters) override {
        return std::make_shared<TextPurchase>(buyParameters, equality_);
    }

  private:
    PurchaseEquality equality_;
};

} // namespace qv
