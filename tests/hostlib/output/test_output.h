// The output library's calls caught in a document of the test's own, for as
// long as the TestOutput lives.
#pragma once

#include "hostlib/output/document.h"
#include "hostlib/output/output_target.h"

namespace output_test {

class TestOutput final : public hostlib::output::OutputTarget {
 public:
  TestOutput() : previous_(hostlib::output::InstallOutputTarget(this)) {}
  TestOutput(const TestOutput&) = delete;
  TestOutput& operator=(const TestOutput&) = delete;
  ~TestOutput() override { hostlib::output::InstallOutputTarget(previous_); }

  hostlib::output::Document& TargetDocument() override { return document_; }
  int CommandNumber() const override { return command_; }

  void BeginCommand(int number) { command_ = number; }
  void Clear() {
    document_.Clear();
    command_ = 0;
  }

 private:
  hostlib::output::OutputTarget* previous_;
  hostlib::output::Document document_;
  int command_ = 0;
};

}  // namespace output_test
