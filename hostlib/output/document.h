// The output document: everything the commands of a run have written, in
// order. One model, several renderers (text, JSON, HTML).
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "host/output.h"

namespace hostlib::output {

// A host note: a hint the host adds after a message; never an error.
constexpr int kNoteLevel = 1;

// Where a message stands in the input: the source ("survey.mrs",
// "<command line>", "<stdin>"), the line and column of the token the command
// was reading, the line where the command began, and the text of the
// token's line. Empty file and no line when the message stands nowhere.
struct MessagePlace {
  std::string file;
  std::optional<int> line;
  std::optional<int> column;
  std::optional<int> commandLine;
  std::string sourceLine;

  bool Known() const { return !file.empty() && line && column; }
};

struct Message {
  int command = 0;
  int level = kErrorLevel;  // BpErrorLevel: 4 error, 2 warning; kNoteLevel
  BpText text;
  MessagePlace place;

  bool IsError() const { return level >= kErrorLevel; }
  bool IsNote() const { return level == kNoteLevel; }
  // "error", "warning" or "note".
  const char* Kind() const { return IsError() ? "error" : IsNote() ? "note" : "warning"; }
};

struct Assertion {
  int command = 0;
  std::string condition;
  std::string file;
  int line = 0;
};

struct Category {
  BpText label;
  bool released = false;
  std::vector<std::pair<std::string, BpData>> data;  // AttachData, in the order attached
};

struct Dimension {
  BpText label;
  int sort = 0;
  int place = 0;  // 1: across the columns; 0: down the rows
  std::vector<Category> categories;
  int current = -1;  // the current category, -1 when none
};

struct Cell {
  BpText text;
  bool hasText = false;    // false: the cell only carries notes
  std::vector<int> notes;  // handles of registered texts, in order attached
};

struct Table {
  int command = 0;
  BpText title;
  BpText caption;
  std::vector<Dimension> dimensions;
  // Keyed by one category index per dimension, in dimension order.
  std::map<std::vector<int>, Cell> cells;
};

using Item = std::variant<Message, Assertion, Table>;

class Document {
 public:
  // Items in the order they were issued, since the last DropItems; a table
  // is complete once its procedure has closed.
  const std::deque<Item>& Items() const { return items_; }
  std::deque<Item>& Items() { return items_; }
  std::size_t Add(Item item);

  // The table of a handle Add returned; null when that item is no table or
  // is gone (a handle that outlived Clear() or DropItems()).
  Table* FindTable(std::size_t index);

  int Register(BpText text);  // a handle for BpCellText::Replicate
  bool IsRegistered(int handle) const;
  const BpText& Registered(int handle) const;  // throws std::out_of_range

  // Procedure frames. Closing one ends the current categories of the tables
  // made inside it, so that a stale handle cannot add cells to them.
  void OpenProcedure();
  void CloseProcedure();

  int ErrorCount() const;  // messages of level 4, host errors included
  void Clear();

  // Lets go of the items and registered texts once they have been written,
  // so that a long run holds only what its current command made. Handles
  // and ErrorCount go on counting; nothing is dropped while a procedure is
  // open.
  void DropItems();

 private:
  std::deque<Item> items_;
  std::size_t droppedItems_ = 0;  // Add returns handles counted from the first item ever
  int droppedErrors_ = 0;
  std::vector<BpText> registered_;
  int droppedRegistered_ = 0;
  std::vector<std::size_t> openProcedures_;  // first item index of each open frame
};

}  // namespace hostlib::output
