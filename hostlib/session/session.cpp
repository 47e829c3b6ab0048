#include "hostlib/session/session.h"

#include <cstdint>

#include "host/common_areas.h"
#include "host/data_source.h"
#include "hostlib/data/data_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/syntax/command.h"

namespace hostlib {
namespace {

void SetActiveDatasetWord(bool active) {
  auto* words = static_cast<std::intptr_t*>(pvGetCmnDic());
  words[kActiveDatasetWord] = active ? 1 : 0;
}

}  // namespace

Session& Session::Instance() {
  static Session session;
  return session;
}

Session::Session() {
  data::InstallActiveDatasetSource(this);
  syntax::InstallCommandSource(this);
  output::InstallOutputTarget(this);
}

Session::~Session() {
  data::InstallActiveDatasetSource(nullptr);
  syntax::InstallCommandSource(nullptr);
  output::InstallOutputTarget(nullptr);
}

void Session::OpenDataset(std::shared_ptr<data::Dataset> dataset) {
  dataset_ = std::move(dataset);
  root_ = dataset_ ? data::DataSourceOver(dataset_) : nullptr;
  SetActiveDatasetWord(dataset_ != nullptr);
}

void Session::CloseDataset() { OpenDataset(nullptr); }

void Session::BeginCommand(int number, std::shared_ptr<const syntax::Command> command) {
  commandNumber_ = number;
  command_ = std::move(command);
}

void Session::EndCommand() { command_.reset(); }

void Session::Reset() {
  CloseDataset();
  command_.reset();
  commandNumber_ = 0;
  output_.Clear();
}

}  // namespace hostlib
