// ExistingVarList: a list of dictionary variables, as a command names them.
//
//   list  := item...
//   item  := ALL | name | name TO name
//
// Names match without regard to case. A range covers the dictionary from its
// first name to its last, both included; ALL covers every variable.
//
// A variable may appear in a list only once, however it is reached (twice by
// name, by a name and a range or ALL, by overlapping ranges): a list feeds
// sets whose members must be distinct, and silently dropping the repeat would
// hide a likely typing error. The repeat is reported and the list fails.
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "host/data_source.h"
#include "host/output.h"
#include "host/syntax.h"
#include "hostlib/strings/unicode.h"

namespace {

class VariableListReader {
 public:
  VariableListReader(const VORN_DataSource& dataSource, TokenSequenceBase& tokens,
                     std::vector<int>& indices, std::size_t end)
      : dataSource_(dataSource),
        tokens_(tokens),
        indices_(indices),
        end_(end),
        listed_(dataSource.ColumnCount(), false) {}

  bool Read() {
    if (AtEnd()) {
      return Report("A variable list was expected.", {});
    }
    while (!AtEnd()) {
      if (!ReadItem()) {
        return false;
      }
    }
    return true;
  }

 private:
  bool ReadItem() {
    if (tokens_.Type() == TokenSequenceBase::kString &&
        tokens_.SubType() == TokenSequenceBase::kAll) {
      tokens_.Next();
      for (unsigned int i = 0; i < dataSource_.ColumnCount(); ++i) {
        if (!Append(static_cast<int>(i))) {
          return false;
        }
      }
      return true;
    }
    if (!AtName()) {
      return Report("A variable name was expected. Found ^1.", {tokens_.Text()});
    }
    const std::string first = tokens_.Text();
    const int firstIndex = Find(first);
    if (firstIndex < 0) {
      return false;
    }
    tokens_.Next();
    if (AtEnd() || !AtTo()) {
      return Append(firstIndex);
    }
    tokens_.Next();
    if (AtEnd()) {
      return Report("A variable name was expected after TO.", {});
    }
    if (!AtName()) {
      return Report("A variable name was expected after TO. Found ^1.", {tokens_.Text()});
    }
    const std::string last = tokens_.Text();
    const int lastIndex = Find(last);
    if (lastIndex < 0) {
      return false;
    }
    tokens_.Next();
    if (lastIndex < firstIndex) {
      return Report("The range ^1 TO ^2 is reversed: ^2 comes before ^1 in the dataset.",
                    {first, last});
    }
    for (int i = firstIndex; i <= lastIndex; ++i) {
      if (!Append(i)) {
        return false;
      }
    }
    return true;
  }

  bool AtEnd() const {
    return tokens_.GetPosition() >= end_ || tokens_.Type() == TokenSequenceBase::kEndOfCommand;
  }

  bool AtTo() const {
    return tokens_.Type() == TokenSequenceBase::kString &&
           hostlib::strings::UpperCase(tokens_.Text()) == "TO";
  }

  bool AtName() const {
    return tokens_.Type() == TokenSequenceBase::kString &&
           tokens_.SubType() != TokenSequenceBase::kAll && !AtTo();
  }

  // The variable's index; reports an unknown name and returns -1.
  int Find(const std::string& name) {
    const int index = dataSource_.FindVarIndex(name.c_str(), 0);
    if (index < 0) {
      Report("Variable ^1 does not exist in the dataset.", {name});
    }
    return index;
  }

  bool Append(int index) {
    if (listed_[static_cast<std::size_t>(index)]) {
      return Report("Variable ^1 is named more than once in the list.",
                    {dataSource_.GetVariable(index).GetName()});
    }
    listed_[static_cast<std::size_t>(index)] = true;
    indices_.push_back(index);
    return true;
  }

  // Issues an error whose ^n are user texts; always false.
  static bool Report(const std::string& format, std::initializer_list<std::string> items) {
    BpComposite message(format, true);
    for (const auto& item : items) {
      message.Add(BpString(item, false));
    }
    message.Finish();
    BpError(message, kShowInOutput, kErrorLevel);
    return false;
  }

  const VORN_DataSource& dataSource_;
  TokenSequenceBase& tokens_;
  std::vector<int>& indices_;
  std::size_t end_;
  std::vector<bool> listed_;
};

}  // namespace

bool ExistingVarList(const VORN_DataSource& dataSource, TokenSequenceBase& tokens,
                     std::vector<int>& indices, std::size_t end) {
  return VariableListReader(dataSource, tokens, indices, end).Read();
}
