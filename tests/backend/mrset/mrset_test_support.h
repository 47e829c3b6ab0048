// Runs MRSET commands through the real host on an in-memory dataset and
// reads back what they wrote.
#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/data_source.h"
#include "host/output.h"
#include "hostlib/data/dataset.h"
#include "hostlib/session/session.h"
#include "hostlib/syntax/splitter.h"

extern "C" void MRSET();

namespace mrset_test {

// The dictionary most cases run on.
inline hostlib::data::Dataset SurveyDataset() {
  VORN_ValueLabels yesNo;
  yesNo.numeric = {{1.0, "Yes"}, {0.0, "No"}};
  VORN_ValueLabels yesUpper;
  yesUpper.numeric = {{1.0, "YES"}};
  VORN_ValueLabels oui;
  oui.numeric = {{1.0, "Oui"}, {0.0, "Non"}};
  VORN_ValueLabels brand;
  brand.text = {{"Y", "Brand"}, {"AB", "Ab"}};
  return hostlib::data::Dataset({
      VORN_Variable("like1", 0, "Likes apples", yesNo),
      VORN_Variable("like2", 0, "Likes pears", yesNo),
      VORN_Variable("like3", 0, "Likes plums", yesUpper),
      VORN_Variable("like4", 0, "", oui),
      VORN_Variable("same1", 0, "Age", yesNo),
      VORN_Variable("same2", 0, "AGE", yesNo),
      VORN_Variable("s8", 8, "Wide", brand),
      VORN_Variable("s3", 3, "Narrow", brand),
      VORN_Variable("s5", 5, "Middle", brand),
      VORN_Variable("nolab", 0),
  });
}

inline std::string Describe(const hostlib::output::Item& item) {
  if (const auto* message = std::get_if<hostlib::output::Message>(&item)) {
    return (message->level == kErrorLevel ? "E: " : "W: ") + ComposeText(message->text);
  }
  if (const auto* assertion = std::get_if<hostlib::output::Assertion>(&item)) {
    return "A: " + assertion->condition;
  }
  return "T: " + ComposeText(std::get<hostlib::output::Table>(item).title);
}

class Host {
 public:
  explicit Host(hostlib::data::Dataset dataset = SurveyDataset()) {
    hostlib::Session::Instance().Reset();
    dataset_ = std::make_shared<hostlib::data::Dataset>(std::move(dataset));
    hostlib::Session::Instance().OpenDataset(dataset_);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() { hostlib::Session::Instance().Reset(); }

  // Runs one command; returns what it wrote, one line per item.
  std::vector<std::string> Run(const std::string& text) {
    auto& session = hostlib::Session::Instance();
    const std::size_t first = session.Output().Items().size();
    const auto commands = hostlib::syntax::SplitCommands(text);
    session.BeginCommand(++number_, commands.at(0).command);
    MRSET();
    session.EndCommand();
    std::vector<std::string> written;
    const auto& items = session.Output().Items();
    for (std::size_t i = first; i < items.size(); ++i) written.push_back(Describe(items[i]));
    return written;
  }

  // The stored sets, name by name, in stored order.
  std::vector<std::string> SetNames() const {
    std::vector<std::string> names;
    for (const VariableSet& set : dataset_->MultipleResponseSets()) {
      names.push_back(set.GetName(kAsStored));
    }
    return names;
  }

  const std::vector<VariableSet>& Sets() const { return dataset_->MultipleResponseSets(); }
  std::uint64_t Revision() const { return dataset_->SetsRevision(); }

  // The last table written, as rows of "name|cell|cell|..." ("*" marks a
  // cell with a note).
  std::vector<std::string> LastTableRows() const {
    const hostlib::output::Table* table = nullptr;
    for (const auto& item : hostlib::Session::Instance().Output().Items()) {
      if (const auto* t = std::get_if<hostlib::output::Table>(&item)) table = t;
    }
    if (table == nullptr || table->dimensions.size() != 2) return {};
    const int columns = table->dimensions[0].place == 1 ? 0 : 1;
    const int rows = 1 - columns;
    std::vector<std::string> lines;
    const auto& rowCategories = table->dimensions[rows].categories;
    for (std::size_t r = 0; r < rowCategories.size(); ++r) {
      std::string line = ComposeText(rowCategories[r].label);
      for (std::size_t c = 0; c < table->dimensions[columns].categories.size(); ++c) {
        std::vector<int> key(2);
        key[columns] = static_cast<int>(c);
        key[rows] = static_cast<int>(r);
        line += "|";
        if (const auto cell = table->cells.find(key); cell != table->cells.end()) {
          line += ComposeText(cell->second.text) + (cell->second.notes.empty() ? "" : "*");
        }
      }
      lines.push_back(line);
    }
    return lines;
  }

 private:
  std::shared_ptr<hostlib::data::Dataset> dataset_;
  int number_ = 0;
};

}  // namespace mrset_test
