#include "hostlib/data/dataset.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "hostlib/strings/unicode.h"

namespace hostlib::data {

std::string FoldName(std::string_view name) { return strings::FoldCase(name); }

namespace {

void CheckKind(const VariableSet& set) {
  if (set.IsStoredUnchanged()) return;  // its store vouches for its kind
  const auto type = set.GetType();
  if (type != VariableSet::kMultipleCategorySet && type != VariableSet::kMultipleDichotomySet) {
    throw std::invalid_argument("set " + set.GetName(kAsStored) +
                                " is not a multiple response set");
  }
}

}  // namespace

Dataset::Dataset(std::vector<VORN_Variable> variables, std::vector<VariableSet> sets) {
  variables_.reserve(variables.size());
  for (auto& variable : variables) {
    AddVariable(std::move(variable));
  }
  ReplaceMultipleResponseSets(std::move(sets));
  setsRevision_ = 0;
}

std::vector<VORN_Variable> DictionarySource::ReadAll() const {
  std::vector<VORN_Variable> variables;
  const unsigned int count = Count();
  variables.reserve(count);
  for (unsigned int i = 0; i < count; ++i) variables.push_back(Read(static_cast<int>(i)));
  return variables;
}

Dataset::Dataset(std::shared_ptr<const DictionarySource> dictionary, std::vector<VariableSet> sets)
    : Dataset(std::move(dictionary),
              std::make_shared<const std::vector<VariableSet>>(std::move(sets))) {}

Dataset::Dataset(std::shared_ptr<const DictionarySource> dictionary, SharedSetList sets)
    : dictionary_(std::move(dictionary)) {
  for (const auto& set : *sets) CheckKind(set);
  sets_ = std::move(sets);
}

unsigned int Dataset::ColumnCount() const {
  return dictionary_ ? dictionary_->Count() : static_cast<unsigned int>(variables_.size());
}

const VORN_Variable& Dataset::Variable(int index) const {
  if (!dictionary_) return variables_.at(static_cast<std::size_t>(index));
  if (index < 0 || static_cast<unsigned int>(index) >= dictionary_->Count()) {
    throw std::out_of_range("no variable at index " + std::to_string(index));
  }
  if (const auto found = readVariables_.find(index); found != readVariables_.end()) {
    return found->second;
  }
  if (!variables_.empty()) return variables_[static_cast<std::size_t>(index)];
  return readVariables_.emplace(index, dictionary_->Read(index)).first->second;
}

const std::vector<VORN_Variable>& Dataset::Variables() const {
  if (dictionary_ && variables_.empty() && dictionary_->Count() > 0) {
    variables_ = dictionary_->ReadAll();
  }
  return variables_;
}

void Dataset::TakeIntoMemory() {
  std::vector<VORN_Variable> variables = Variables();
  dictionary_.reset();
  readVariables_.clear();
  variables_.clear();
  indexByFoldedName_.clear();
  for (auto& variable : variables) AddVariable(std::move(variable));
}

int Dataset::FindVarIndex(std::string_view name) const {
  if (dictionary_) return dictionary_->FindFolded(FoldName(name));
  const auto found = indexByFoldedName_.find(FoldName(name));
  return found == indexByFoldedName_.end() ? -1 : found->second;
}

void Dataset::AddVariable(VORN_Variable variable) {
  if (dictionary_) TakeIntoMemory();
  const int index = static_cast<int>(variables_.size());
  const auto [position, inserted] = indexByFoldedName_.emplace(FoldName(variable.GetName()), index);
  if (!inserted) {
    throw DatasetError(std::string("The variable name ") + variable.GetName() +
                       " is used twice (as " + Variable(position->second).GetName() + ").");
  }
  variables_.push_back(std::move(variable));
}

void Dataset::ReplaceMultipleResponseSets(std::vector<VariableSet> sets) {
  for (const auto& set : sets) CheckKind(set);
  sets_ = std::make_shared<const std::vector<VariableSet>>(std::move(sets));
  ++setsRevision_;
}

}  // namespace hostlib::data
