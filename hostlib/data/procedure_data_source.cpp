// Kept apart from data_source.cpp: it is the only part of the data-source
// library that needs the active dataset.
#include "host/data_source.h"
#include "hostlib/data/active_dataset.h"
#include "hostlib/data/data_source.h"

namespace {

std::shared_ptr<hostlib::data::Dataset> Active() {
  const hostlib::data::ActiveDatasetSource* source = hostlib::data::CurrentActiveDatasetSource();
  return source != nullptr ? source->ActiveDataset() : nullptr;
}

}  // namespace

ProcedureDataSource::ProcedureDataSource()
    : VORN_DataSource(hostlib::data::HostStateOver(Active())) {}

ProcedureDataSource::~ProcedureDataSource() = default;

const VORN_DataSource* ProcedureDataSource::GetParentSource() const {
  const hostlib::data::ActiveDatasetSource* source = hostlib::data::CurrentActiveDatasetSource();
  const VORN_DataSource* root = source != nullptr ? source->RootSource() : nullptr;
  return root != nullptr ? root : this;
}
