// One result type for every operation that can fail: a value, or a named error from one table plus detail text.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace qv {

// Every failure the system can report: its name and the one-line message a person reads. A code that is not in
// this table does not compile; a code in it without a message does not compile either.
#define QV_ERROR_CODES(X)                                                                                              \
    X(MalformedJson, "malformed JSON")                                                                                 \
    X(WrongType, "wrong type")                                                                                         \
    X(FileUnreadable, "cannot read the file")                                                                          \
    X(FileUnwritable, "cannot write the file")                                                                         \
    X(MalformedPropertyList, "not a well-formed property list")                                                        \
    X(MalformedArchive, "not a keyed archive of the expected shape")                                                   \
    X(UnencodableValue, "the value cannot be archived")                                                                \
    X(MalformedAppArchive, "not a readable app archive")                                                               \
    X(ContainerUnknown, "the App Store app's data container is unknown")                                               \
    X(StorageFailed, "the database failed")                                                                            \
    X(BadRequest, "bad request")                                                                                       \
    X(ServiceUnreachable, "the service could not be reached")                                                          \
    X(ServiceRefused, "the service refused the request")                                                               \
    X(MalformedReply, "the service's reply is malformed")                                                              \
    X(PayloadTooLarge, "the body is larger than 1 MiB")                                                                \
    X(TooManyVersions, "the app already holds as many versions as the service keeps")                                  \
    X(Conflict, "the report disagrees with what the service already knows")                                            \
    X(StorageFull, "the service keeps no more version data")                                                           \
    X(RateLimited, "too many writes from this client; try again later")                                                \
    X(StorageUnavailable, "the database cannot be written at the moment; try again shortly")                           \
    X(NotFound, "no such resource")                                                                                    \
    X(NotServiceAddress, "not an absolute http or https URL ending in \"/\"")                                          \
    X(MethodNotAllowed, "method not allowed")                                                                          \
    X(ListenFailed, "cannot listen on the address")                                                                    \
    X(ServerFailed, "the server stopped with an error")                                                                \
    X(NotInteger, "not a whole decimal number")                                                                        \
    X(IntegerOutOfRange, "the number is out of range")

enum class ErrorCode {
#define QV_ERROR_ENUMERATOR(name, message) name,
    QV_ERROR_CODES(QV_ERROR_ENUMERATOR)
#undef QV_ERROR_ENUMERATOR
};

constexpr std::string_view errorMessage(ErrorCode code) {
    switch (code) {
#define QV_ERROR_MESSAGE(name, message)                                                                                \
    case ErrorCode::name:                                                                                              \
        static_assert(std::string_view(message).size() > 0, #name " needs a message");                                 \
        return message;
        QV_ERROR_CODES(QV_ERROR_MESSAGE)
#undef QV_ERROR_MESSAGE
    }
    return "unknown error";
}

struct Error {
    ErrorCode code;
    // What went wrong in this instance, one line: a path, an offset, the library's own words. May be empty.
    std::string detail;

    // The one line for a person: the detail when there is one, else the table's message.
    std::string describe() const { return detail.empty() ? std::string(errorMessage(code)) : detail; }
    bool operator==(const Error &) const = default;
};

// Builds a failure that converts to any Result<T>: `return fail(ErrorCode::MalformedJson, "at offset 3");`
inline Error fail(ErrorCode code, std::string detail = {}) {
    return Error{code, std::move(detail)};
}

// Reading the value of a failure (or the error of a success) is a fault in the caller. It stops the program with
// a line saying which, rather than going on with memory that holds no value.
[[noreturn]] inline void stopOnMisusedResult(std::string_view what, const Error *error) {
    std::fprintf(stderr, "qv::Result: %.*s", static_cast<int>(what.size()), what.data());
    if (error != nullptr) {
        const std::string text = error->describe();
        std::fprintf(stderr, " (the failure: %s)", text.c_str());
    }
    std::fputc('\n', stderr);
    std::abort();
}

template <class T> class [[nodiscard]] Result {
  public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }

    T &value() & { return *checkedValue(); }
    const T &value() const & { return *checkedValue(); }
    T &&value() && { return std::move(*checkedValue()); }
    T *operator->() { return &value(); }
    const T *operator->() const { return &value(); }
    T &operator*() & { return value(); }
    const T &operator*() const & { return value(); }

    const Error &error() const {
        const Error *failure = std::get_if<1>(&state_);
        if (failure == nullptr) {
            stopOnMisusedResult("error() of a result that holds a value", nullptr);
        }
        return *failure;
    }
    T valueOr(T fallback) const & { return ok() ? value() : std::move(fallback); }

  private:
    T *checkedValue() {
        T *held = std::get_if<0>(&state_);
        if (held == nullptr) {
            stopOnMisusedResult("value() of a failed result", std::get_if<1>(&state_));
        }
        return held;
    }
    const T *checkedValue() const {
        const T *held = std::get_if<0>(&state_);
        if (held == nullptr) {
            stopOnMisusedResult("value() of a failed result", std::get_if<1>(&state_));
        }
        return held;
    }

    std::variant<T, Error> state_;
};

template <> class [[nodiscard]] Result<void> {
  public:
    Result() = default;
    Result(Error error) : error_(std::move(error)) {}

    bool ok() const { return !error_.has_value(); }
    explicit operator bool() const { return ok(); }
    const Error &error() const {
        if (!error_) {
            stopOnMisusedResult("error() of a result that succeeded", nullptr);
        }
        return *error_;
    }

  private:
    std::optional<Error> error_;
};

} // namespace qv
