// Notifier for tests: records every post in order, with its centre.
#pragma once

#include <string>
#include <vector>

#include "platform/notifier.h"

namespace qv {

class FakeNotifier : public Notifier {
  public:
    enum class Centre { SystemWide, Local };
    struct Post {
        Centre centre;
        std::string name;
        friend bool operator==(const Post &, const Post &) = default;
    };

    void postSystemWide(const std::string &name) override { posts.push_back({Centre::SystemWide, name}); }
    void postLocal(const std::string &name) override { posts.push_back({Centre::Local, name}); }

    std::vector<Post> posts;
};

} // namespace qv
