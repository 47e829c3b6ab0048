// The output document: everything the commands of a run have written, in
// order. One model, several renderers (text, JSON, HTML).
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "host/output.h"

namespace hostlib::output {

struct Message {
  int command = 0;
  int level = kErrorLevel;  // BpErrorLevel: 4 error, 2 warning
  BpText text;
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
  // Items in the order they were issued; a table is complete once its
  // procedure has closed.
  const std::deque<Item>& Items() const { return items_; }
  std::deque<Item>& Items() { return items_; }
  std::size_t Add(Item item);

  int Register(BpText text);             // a handle for BpCellText::Replicate
  const BpText& Registered(int handle) const;

  int ErrorCount() const;  // messages of level 4, host errors included
  void Clear();

 private:
  std::deque<Item> items_;
  std::vector<BpText> registered_;
};

}  // namespace hostlib::output
