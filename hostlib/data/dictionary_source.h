// Where a dataset's dictionary is read from on demand: a store that keeps it
// in a file answers the count, a look-up by name and one variable at a time,
// so that a command that names a hundred variables reads a hundred.
#pragma once

#include <string_view>
#include <vector>

#include "host/data_source.h"

namespace hostlib::data {

class DictionarySource {
 public:
  DictionarySource() = default;
  DictionarySource(const DictionarySource&) = delete;
  DictionarySource& operator=(const DictionarySource&) = delete;
  virtual ~DictionarySource() = default;

  virtual unsigned int Count() const = 0;
  // The index of the variable whose name folds to `folded` (FoldName), or -1.
  virtual int FindFolded(std::string_view folded) const = 0;
  // The variable at `index` (below Count()). Throws DatasetError, naming the
  // file, the place and the fault, when its entry breaks the format's rules.
  virtual VORN_Variable Read(int index) const = 0;
  // Every variable in column order; throws as Read.
  virtual std::vector<VORN_Variable> ReadAll() const;
};

}  // namespace hostlib::data
