#include "hostlib/data/dataset.h"

#include <utility>

#include "hostlib/strings/unicode.h"

namespace hostlib::data {

std::string FoldName(std::string_view name) { return strings::FoldCase(name); }

Dataset::Dataset(std::vector<VORN_Variable> variables, std::vector<VariableSet> sets) {
  variables_.reserve(variables.size());
  for (auto& variable : variables) {
    AddVariable(std::move(variable));
  }
  ReplaceMultipleResponseSets(std::move(sets));
  setsRevision_ = 0;
}

int Dataset::FindVarIndex(std::string_view name) const {
  const auto found = indexByFoldedName_.find(FoldName(name));
  return found == indexByFoldedName_.end() ? -1 : found->second;
}

void Dataset::AddVariable(VORN_Variable variable) {
  const int index = static_cast<int>(variables_.size());
  const auto [position, inserted] = indexByFoldedName_.emplace(FoldName(variable.GetName()), index);
  if (!inserted) {
    throw DatasetError(std::string("The variable name ") + variable.GetName() +
                       " is used twice (as " + Variable(position->second).GetName() + ").");
  }
  variables_.push_back(std::move(variable));
}

void Dataset::ReplaceMultipleResponseSets(std::vector<VariableSet> sets) {
  for (const auto& set : sets) {
    const auto type = set.GetType();
    if (type != VariableSet::kMultipleCategorySet && type != VariableSet::kMultipleDichotomySet) {
      throw std::invalid_argument("set " + set.GetName(kAsStored) +
                                  " is not a multiple response set");
    }
  }
  sets_ = std::move(sets);
  ++setsRevision_;
}

}  // namespace hostlib::data
