// The data-source library over hostlib::data::Dataset. ProcedureDataSource,
// which needs the session, lives in procedure_data_source.cpp.
#include <cmath>
#include <stdexcept>
#include <utility>

#include "host/data_source.h"
#include "hostlib/data/data_source.h"
#include "hostlib/data/dataset.h"
#include "hostlib/strings/unicode.h"

// ---- value labels --------------------------------------------------------

VORN_VLImplPointer::VORN_VLImplPointer() = default;

VORN_VLImplPointer::VORN_VLImplPointer(std::shared_ptr<const VORN_ValueLabels> labels)
    : labels_(std::move(labels)) {}

const VORN_ValueLabels& VORN_VLImplPointer::Labels() const {
  static const VORN_ValueLabels kNone;
  return labels_ ? *labels_ : kNone;
}

VORN_ValueLabelMap::VORN_ValueLabelMap(const VORN_VLImplPointer& handle) : handle_(handle) {}

VORN_ValueLabelMap::~VORN_ValueLabelMap() = default;

// The labels are shared and immutable, so there is nothing to prepare.
void VORN_ValueLabelMap::Reset() { ready_ = true; }

const char* VORN_ValueLabelMap::GetLabel(const double& value) const {
  // NaN would break the map's ordering and match an arbitrary key.
  if (std::isnan(value)) {
    return nullptr;
  }
  const auto& labels = handle_.Labels().numeric;
  const auto found = labels.find(value);
  return found == labels.end() ? nullptr : found->second.c_str();
}

const char* VORN_ValueLabelMap::GetLabel(const std::string& value) const {
  const auto& labels = handle_.Labels().text;
  const auto found = labels.find(value);
  return found == labels.end() ? nullptr : found->second.c_str();
}

// ---- variables -----------------------------------------------------------

VORN_Variable::VORN_Variable(std::string name, int type, std::string label,
                             VORN_ValueLabels valueLabels)
    : name_(std::move(name)),
      type_(type),
      label_(std::move(label)),
      valueLabels_(std::make_shared<const VORN_ValueLabels>(std::move(valueLabels))) {
  if (type_ < 0) {
    throw std::invalid_argument("variable " + name_ + ": a string width must be above 0");
  }
}

const char* VORN_Variable::GetName() const { return name_.c_str(); }

int VORN_Variable::GetType() const { return type_; }

const char* VORN_Variable::GetLabel() const { return label_.empty() ? nullptr : label_.c_str(); }

const VORN_VLImplPointer& VORN_Variable::GetValueLabels() const { return valueLabels_; }

// ---- data sources --------------------------------------------------------

VORN_DataSource::VORN_DataSource(std::shared_ptr<HostState> state) : state_(std::move(state)) {
  if (!state_) state_ = std::make_shared<HostState>();
}

VORN_DataSource::~VORN_DataSource() = default;

const VORN_DataSource* VORN_DataSource::GetParentSource() const { return this; }

unsigned int VORN_DataSource::ColumnCount() const {
  return state_->dataset ? state_->dataset->ColumnCount() : 0;
}

int VORN_DataSource::FindVarIndex(const char* name, int /*selector*/) const {
  return state_->dataset && name != nullptr ? state_->dataset->FindVarIndex(name) : -1;
}

const VORN_Variable& VORN_DataSource::GetVariable(int index) const {
  return hostlib::data::DatasetOf(*this).Variable(index);
}

namespace hostlib::data {

std::shared_ptr<VORN_DataSource::HostState> HostStateOver(std::shared_ptr<Dataset> dataset) {
  return std::make_shared<VORN_DataSource::HostState>(
      VORN_DataSource::HostState{std::move(dataset)});
}

std::unique_ptr<VORN_DataSource> DataSourceOver(std::shared_ptr<Dataset> dataset) {
  return std::make_unique<VORN_DataSource>(HostStateOver(std::move(dataset)));
}

Dataset& DatasetOf(const VORN_DataSource& source) {
  if (!source.Host().dataset) {
    throw std::logic_error("no dataset is open");
  }
  return *source.Host().dataset;
}

}  // namespace hostlib::data

// ---- variable sets -------------------------------------------------------

VariableSet::VariableSet(const std::string& name, VariableSetType type)
    : name_(name), contents_(std::make_shared<Contents>()) {
  if (type != kVarSet && type != kMultipleCategorySet && type != kMultipleDichotomySet) {
    throw std::invalid_argument("unknown variable set type " + std::to_string(type));
  }
  contents_->type = type;
}

VariableSet::VariableSet(std::string name, std::shared_ptr<const VariableSetSource> source,
                         std::size_t index)
    : name_(std::move(name)), source_(std::move(source)), index_(index) {}

VariableSet::VariableSet(const VariableSet&) = default;
VariableSet::VariableSet(VariableSet&&) noexcept = default;
VariableSet& VariableSet::operator=(const VariableSet&) = default;
VariableSet& VariableSet::operator=(VariableSet&&) noexcept = default;
VariableSet::~VariableSet() = default;

const VariableSet::Contents& VariableSet::Read() const {
  if (!contents_ && !source_) contents_ = std::make_shared<Contents>();  // moved from
  if (!contents_) {
    VariableSet loaded = source_->Load(index_, name_);
    if (loaded.name_ != name_ || !loaded.contents_) {
      throw std::logic_error("a set source gave set " + loaded.name_ + " for " + name_);
    }
    contents_ = std::move(loaded.contents_);
  }
  return *contents_;
}

// Copy on write: the contents are copied only while another copy shares them.
VariableSet::Contents& VariableSet::Change() {
  Read();
  if (contents_.use_count() > 1) contents_ = std::make_shared<Contents>(*contents_);
  source_.reset();
  return *contents_;
}

void VariableSet::SetLabel(const std::string& label) { Change().label = label; }

void VariableSet::SetValue(const std::string& value) { Change().value = value; }

void VariableSet::LabelSetByVariable(bool fromVariables) {
  Change().labelSetByVariable = fromVariables;
}

void VariableSet::UseVariableCategoryLabels(bool useValueLabels) {
  Change().useVariableCategoryLabels = useValueLabels;
}

void VariableSet::AddVariableName(const std::string& name) {
  Change().variableNames.push_back(name);
}

void VariableSet::ReserveVariableNames(std::size_t count) { Change().variableNames.reserve(count); }

bool operator==(const VariableSet& a, const VariableSet& b) {
  if (a.name_ != b.name_) return false;
  if (a.source_ && a.source_ == b.source_ && a.index_ == b.index_) return true;
  if (a.contents_ && a.contents_ == b.contents_) return true;  // copies, unchanged
  return a.Read() == b.Read();
}

namespace {

std::string InCase(const std::string& text, ChangeCase changeCase) {
  switch (changeCase) {
    case kUpperCase:
      return hostlib::strings::UpperCase(text);
    case kAsStored:
      return text;
  }
  throw std::invalid_argument("unknown ChangeCase " + std::to_string(changeCase));
}

}  // namespace

std::string VariableSet::GetName(ChangeCase changeCase) const { return InCase(name_, changeCase); }

VariableSet::VariableSetType VariableSet::GetType() const { return Read().type; }

const std::string& VariableSet::GetLabel() const { return Read().label; }

const std::string& VariableSet::GetValue() const { return Read().value; }

bool VariableSet::qLabelSetByVariable() const { return Read().labelSetByVariable; }

bool VariableSet::qUseVariableCategoryLabels() const { return Read().useVariableCategoryLabels; }

std::vector<std::string> VariableSet::GetVariableNames(ChangeCase changeCase) const {
  const std::vector<std::string>& stored = Read().variableNames;
  std::vector<std::string> names;
  names.reserve(stored.size());
  for (const auto& name : stored) {
    names.push_back(InCase(name, changeCase));
  }
  return names;
}

const std::string& VariableSet::StoreExtras() const { return Read().storeExtras; }

void VariableSet::SetStoreExtras(std::string extras) { Change().storeExtras = std::move(extras); }

namespace {

void CheckSetsType(VarSetsType type) {
  if (type != kMultipleResponseSets) {
    throw std::invalid_argument("unknown VarSetsType " + std::to_string(type));
  }
}

}  // namespace

std::vector<VariableSet> VariableSets(const VORN_DataSource& dataSource, VarSetsType type) {
  CheckSetsType(type);
  const std::vector<VariableSet>& stored =
      hostlib::data::DatasetOf(dataSource).MultipleResponseSets();
  // Room for the sets a command adds, so that adding one to a long list
  // does not move the whole list.
  constexpr std::size_t kRoomForNewSets = 64;
  std::vector<VariableSet> sets;
  sets.reserve(stored.size() + kRoomForNewSets);
  sets.assign(stored.begin(), stored.end());
  return sets;
}

void SaveVariableSets(const std::vector<VariableSet>& sets, VORN_DataSource& dataSource,
                      VarSetsType type) {
  CheckSetsType(type);
  hostlib::data::DatasetOf(dataSource).ReplaceMultipleResponseSets(sets);
}

void SaveVariableSets(std::vector<VariableSet>&& sets, VORN_DataSource& dataSource,
                      VarSetsType type) {
  CheckSetsType(type);
  hostlib::data::DatasetOf(dataSource).ReplaceMultipleResponseSets(std::move(sets));
}
