// Case-data library: the cases (rows) of the active dataset, read in one pass.
//
// Guarantees:
// - A reader reads the case data of the active dataset: the CSV file that the
//   dataset names (or that the host was given), one case per record after the
//   header row, in file order, each case once.
// - Only the variables asked for are read; memory stays bounded whatever the
//   number of cases.
// - Slot i of a case holds the value of the i-th variable asked for. A value
//   is missing when its field is one of the dataset's missing-value texts
//   (by default the empty field). Numeric variables give numbers; string
//   variables give the field's text.
// - Every fault (no case data, a file that cannot be read, a variable missing
//   from the header, a ragged row, a non-number in a numeric column, an
//   unclosed quote) stops the reading: NextCase returns false from then on and
//   ErrorText() names the file and, where there is one, the row (the header
//   is row 1) and the column, or the system's reason for a failed open or
//   read. Of several faults, the first in file order is reported.
// - The reader may read ahead on threads of its own; the calls above come
//   from the thread that made the reader, and values stay valid until the
//   next NextCase.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class VORN_CaseReader {
 public:
  // Opens the case data for the variables with these dictionary indices.
  explicit VORN_CaseReader(const std::vector<int>& variables);
  VORN_CaseReader(const VORN_CaseReader&) = delete;
  VORN_CaseReader& operator=(const VORN_CaseReader&) = delete;
  ~VORN_CaseReader();

  // Makes the next case current; false at the end or after a fault.
  bool NextCase();
  bool Failed() const;
  const std::string& ErrorText() const;
  // The number of cases made current so far.
  std::uint64_t CaseCount() const;

  // The current case's values by slot, for readers that go through many.
  const double* Numbers() const;
  const unsigned char* MissingFlags() const;
  const std::string* Texts() const;

  bool IsMissing(std::size_t slot) const;
  double Number(std::size_t slot) const;          // numeric variables; missing: NaN
  std::string_view Text(std::size_t slot) const;  // string variables

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};
