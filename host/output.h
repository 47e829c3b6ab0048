// Output and syntax-utility library.
//
// Output guarantees:
// - Everything a command writes (messages, assertions, tables) goes into the
//   host's output document in the order it was issued, tagged with the number
//   of the command that issued it.
// - Every text carries a flag: true for the command's own fixed texts, false
//   for texts taken from user data. The document keeps it.
// - Message composition: "^1" is filled by the first added item and "^2" by
//   the second; a placeholder without an item stays as written. Items that no
//   placeholder takes, and the items of a sublist, follow the text, each after
//   one blank. "[A:B:C]n" repeats over the items of sublist n: B for every
//   item but the last, C for the last, with "^1" and "$1" standing for the
//   item and "\r" for a line break.
// - BpError level 4 is an error, level 2 a warning.
//
// Syntax-utility guarantees:
// - TokenString: the current token as written (a quoted string without its
//   outer quotes, doubled quotes made single; the end of command as the text
//   "end of command"); TokenStringCaps: the same, upper-cased.
// - KeywordMatch(token, keyword), both upper case: the token equals the
//   keyword, or is a prefix of it at least three characters long.
// - ExistingVarList: see below.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class TokenSequenceBase;
class VORN_DataSource;

// ---- texts ---------------------------------------------------------------

// A text as the output document keeps it: a plain text, or a composite (a
// format with items, some of them in numbered sublists).
struct BpText {
  std::string text;
  bool fixed = true;  // the command's own text (true) or user data (false)
  bool composite = false;
  std::vector<BpText> items;
  std::vector<int> itemSublist;  // per item: 0 outside any sublist, else its number
  bool numeric = false;          // a number: `text` shows it, `number` holds it exactly
  double number = 0;

  friend bool operator==(const BpText&, const BpText&) = default;
};

// Expands a text to what a reader sees ("\n" between the lines of a cell).
std::string ComposeText(const BpText& text);

class BpCellText {
 public:
  virtual ~BpCellText();
  const BpText& Value() const { return value_; }

  // Registers a copy of the text with the output document; returns its handle.
  static int Replicate(const BpCellText& text);

 protected:
  BpCellText(std::string text, bool fixed, bool composite);
  BpText value_;
};

class BpString final : public BpCellText {
 public:
  BpString(const std::string& text, bool fixed);
};

// A number shown with a fixed count of decimals; a JSON document keeps the
// number itself.
class BpNumber final : public BpCellText {
 public:
  BpNumber(double value, int decimals);
};

class BpComposite final : public BpCellText {
 public:
  BpComposite(const std::string& format, bool fixed);
  void Add(const BpCellText& item);
  void Sublist();
  void EndSublist();
  void Finish();

 private:
  int openSublist_ = 0;
  int sublistCount_ = 0;
};

enum BpErrorShow : int { kShowInOutput = 2 };
enum BpErrorLevel : int { kWarningLevel = 2, kErrorLevel = 4 };

void BpError(const BpCellText& text, int show, int level);

// ---- data ----------------------------------------------------------------

// Structured data for programs that read the output: null, a boolean, a
// number, a string, a list or a record (named values, in the order set).
class BpData {
 public:
  enum class Kind { kNull, kBoolean, kNumber, kString, kList, kRecord };

  BpData() = default;  // null
  static BpData Boolean(bool value);
  static BpData Number(double value);
  static BpData String(std::string value);
  static BpData List();
  static BpData Record();
  // A string, or null when `value` is empty.
  static BpData StringOrNull(std::string value);

  // A list gains an element at its end; a record gains `key` (or has it
  // replaced). Any other kind is left as it is.
  BpData& Append(BpData value);
  BpData& Set(const std::string& key, BpData value);

  Kind GetKind() const { return kind_; }
  bool GetBoolean() const { return boolean_; }
  double GetNumber() const { return number_; }
  const std::string& GetString() const { return string_; }
  const std::vector<std::string>& Keys() const { return keys_; }  // a record's
  const std::vector<BpData>& Values() const { return values_; }   // elements or values

  friend bool operator==(const BpData&, const BpData&) = default;

 private:
  Kind kind_ = Kind::kNull;
  bool boolean_ = false;
  double number_ = 0;
  std::string string_;
  std::vector<std::string> keys_;
  std::vector<BpData> values_;
};

// ---- tables --------------------------------------------------------------

// A note that cells may carry: a registered text (from Replicate).
class BpAnnotation {
 public:
  // The second handle and the flag are the module's to pass; this host has
  // no use for them.
  BpAnnotation(int textHandle, int secondHandle, bool flag);
  int TextHandle() const { return textHandle_; }

 private:
  int textHandle_;
};

// Handles into the output document; cheap to copy. A category of one
// dimension is "current" from its creation until another category of that
// dimension is created or it is released; a cell set on a category lies where
// it meets the current categories of the other dimensions.
class BpCategory {
 public:
  BpCategory(std::size_t table, int dimension, int category);
  BpCategory(const BpCategory&) = default;
  BpCategory& operator=(const BpCategory&) = default;
  ~BpCategory();

  void Cell(const BpCellText& text);
  void CellNote(const BpAnnotation& note);
  // Attaches data under `key` to the category itself (a second call with
  // the same key replaces it). Readers see it in the JSON document as a key
  // of the row the category heads, beside what the table shows; the text
  // and HTML tables do not show it. A key the row has already ("name",
  // "cells", "notes") is not shown.
  void AttachData(const std::string& key, const BpData& value);
  void Release();

 private:
  std::size_t table_;
  int dimension_;
  int category_;
};

class BpGroup {
 public:
  BpGroup(std::size_t table, int dimension);
  BpCategory Category(const BpCellText& label);

 protected:
  std::size_t table_;
  int dimension_;
};

class BpDimension final : public BpGroup {
 public:
  using BpGroup::BpGroup;
  // place 1 puts the dimension across the columns; a dimension without a
  // position lies down the rows.
  void Position(int place, int index, bool, bool);
};

class BpPivotTable {
 public:
  explicit BpPivotTable(std::size_t table);
  BpDimension Dimension(const BpCellText& label, int sort);

 private:
  std::size_t table_;
};

class BpHeading {
 public:
  BpPivotTable PivotTable(const BpCellText& title, const BpCellText& caption, bool);

 protected:
  BpHeading() = default;
  ~BpHeading() = default;
};

// The output frame of one command; its tables belong to it.
class BpProcedure final : public BpHeading {
 public:
  BpProcedure(const std::string& title, int kind);
  BpProcedure(const BpProcedure&) = delete;
  BpProcedure& operator=(const BpProcedure&) = delete;
  ~BpProcedure();
};

// ---- syntax utilities ----------------------------------------------------

bool KeywordMatch(const char* token, const char* keyword);
std::string TokenString(const TokenSequenceBase& tokens);
std::string TokenStringCaps(const TokenSequenceBase& tokens);

// Reads a variable list from the current token up to, not including, token
// `end`: names (without regard to case), ranges "a TO b" (dictionary order,
// both ends included) and ALL (every variable). Appends dictionary indices to
// `indices`. Reports its own error through the output and returns false after
// the first one: an unknown name, a reversed or unfinished range, a token
// that is not a name, an empty list, a variable named twice.
bool ExistingVarList(const VORN_DataSource& dataSource, TokenSequenceBase& tokens,
                     std::vector<int>& indices, std::size_t end);
