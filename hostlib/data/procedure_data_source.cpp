// Kept apart from data_source.cpp: it is the only part of the data-source
// library that needs the session.
#include "host/data_source.h"
#include "hostlib/session/session.h"

ProcedureDataSource::ProcedureDataSource()
    : VORN_DataSource(hostlib::Session::Instance().ActiveDataset()) {}

ProcedureDataSource::~ProcedureDataSource() = default;

const VORN_DataSource* ProcedureDataSource::GetParentSource() const {
  const VORN_DataSource* root = hostlib::Session::Instance().RootSource();
  return root != nullptr ? root : this;
}
