// Ports: one store purchase as the intercept sees it, and the maker of fresh purchases.
#pragma once

#include <memory>
#include <string>

namespace qv {

// One store purchase as the intercept sees it: its buy-parameter string and its identity.
class Purchase {
  public:
    Purchase() = default;
    Purchase(const Purchase &) = delete;
    Purchase &operator=(const Purchase &) = delete;
    virtual ~Purchase() = default;
    virtual std::string buyParameters() const = 0;
    // The store's equality of purchases (on the phone: isEqual:).
    virtual bool isEqualTo(const Purchase &other) const = 0;
};

using PurchaseHandle = std::shared_ptr<Purchase>;

// Port: makes a fresh purchase carrying nothing but the given buy parameters.
class PurchaseMaker {
  public:
    virtual ~PurchaseMaker() = default;
    virtual PurchaseHandle purchaseWithBuyParameters(const std::string &buyParameters) = 0;
};

} // namespace qv
