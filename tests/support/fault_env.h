// A file system that fails chosen calls: the nth call of an operation on a
// path that ends as given fails with a chosen errno, doing nothing. Every
// other call goes to the real file system.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "hostlib/files/env.h"

namespace testsupport {

class FaultEnv : public hostlib::files::Env {
 public:
  using Operation = hostlib::files::FileOperation;

  // From now on, the `nth` call (counted from 1) of `operation` on a path
  // ending in `pathEnd` ("" for any path) fails with `error`.
  void Fail(Operation operation, int error, std::string pathEnd = "", int nth = 1) {
    rule_ = Rule{operation, error, std::move(pathEnd), nth};
    seen_ = 0;
    fired_ = false;
  }
  // Whether the chosen call came and failed.
  bool Fired() const { return fired_; }

  int Intercept(Operation operation, const std::filesystem::path& path) override {
    if (!rule_ || rule_->operation != operation || fired_) return 0;
    const std::string name = path.string();
    const std::string& end = rule_->pathEnd;
    if (name.size() < end.size() || name.compare(name.size() - end.size(), end.size(), end) != 0) {
      return 0;
    }
    if (++seen_ != rule_->nth) return 0;
    fired_ = true;
    return rule_->error;
  }

 private:
  struct Rule {
    Operation operation;
    int error;
    std::string pathEnd;
    int nth;
  };
  std::optional<Rule> rule_;
  int seen_ = 0;
  bool fired_ = false;
};

}  // namespace testsupport
