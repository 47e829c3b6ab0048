// Syntax run by the command modules found beside the program against a
// dataset opened once, as the program runs it: each run starts from a fresh
// session holding a copy of the dataset, and nothing is saved.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "hostlib/data/dataset.h"
#include "hostlib/output/document.h"
#include "programs/mrset/command_module.h"

namespace fuzzing {

class SyntaxRun {
 public:
  // `dataset`: a path under the source tree.
  explicit SyntaxRun(const std::string& dataset);

  // Runs `text`, written as text `width` wide; `inspect` sees the session's
  // document before the session is reset.
  void Run(std::string_view text, int width,
           const std::function<void(const hostlib::output::Document&)>& inspect) const;

 private:
  mrset_program::CommandModules modules_;
  hostlib::data::Dataset dataset_;
};

}  // namespace fuzzing
