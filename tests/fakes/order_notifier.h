// A notifier that records each post with the number of saves made before it, to prove a save came first.
#pragma once

#include <string>
#include <vector>

#include "fakes/fake_archive_file.h"
#include "platform/notifier.h"

namespace qv {

class OrderNotifier : public Notifier {
  public:
    explicit OrderNotifier(const FakeArchiveFile &file) : file_(file) {}
    void postSystemWide(const std::string &name) override { posts.push_back("system:" + name + at()); }
    void postLocal(const std::string &name) override { posts.push_back("local:" + name + at()); }
    std::vector<std::string> posts;

  private:
    std::string at() const { return " after " + std::to_string(file_.saves) + " save(s)"; }
    const FakeArchiveFile &file_;
};

} // namespace qv
