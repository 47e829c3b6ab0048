// DDI Codebook 2.5 in and out.
//
// In: every <var> of <dataDscr> (name, <labl>, <catgry> with <catValu> and
// <labl>, <varFormat type="numeric|character">, <location width>) and every
// <varGrp type="multipleResp"> (members by its var references, <labl>) as a set.
//
// Out: a <codeBook> whose <dataDscr> holds one <varGrp type="multipleResp">
// per set before the <var>s. DDI has no counted value; it travels as
//   - a note of the group, <notes type="countedValue">1</notes> (with
//     "categoryLabels" and "labelSource" notes for the rest of the set), and
//   - a category of that value in each member (<catgry> without a label
//     where the member had none, so the value labels come back unchanged).
// A group without a countedValue note becomes a dichotomy set counting 1
// when its members' categories are 0 and 1 only (the usual coding of a
// checked box), else a category set.
#pragma once

#include <string>

#include "hostlib/data/dataset.h"

namespace hostlib::formats {

// Throws DatasetError naming `file`, the line and the fault.
data::Dataset ReadDdi(const std::string& text, const std::string& file);
bool IsDdi(const std::string& text);
// `title` names the study (the codebook requires one).
std::string RenderDdi(const data::Dataset& dataset, const std::string& title);

}  // namespace hostlib::formats
