#include "hostlib/output/output_target.h"

#include <utility>

namespace hostlib::output {
namespace {

class OwnDocument final : public OutputTarget {
 public:
  Document& TargetDocument() override { return document_; }
  int CommandNumber() const override { return 0; }

 private:
  Document document_;
};

OutputTarget* installed = nullptr;

}  // namespace

OutputTarget& CurrentOutputTarget() {
  static OwnDocument own;
  return installed != nullptr ? *installed : own;
}

OutputTarget* InstallOutputTarget(OutputTarget* target) { return std::exchange(installed, target); }

}  // namespace hostlib::output
