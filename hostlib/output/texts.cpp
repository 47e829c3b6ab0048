// The cell texts and the message stream of host/output.h.
#include <string>
#include <utility>

#include "host/output.h"
#include "hostlib/output/document.h"
#include "hostlib/output/output_target.h"

BpCellText::BpCellText(std::string text, bool fixed, bool composite)
    : value_{std::move(text), fixed, composite, {}, {}} {}

BpCellText::~BpCellText() = default;

int BpCellText::Replicate(const BpCellText& text) {
  return hostlib::output::CurrentOutputTarget().TargetDocument().Register(text.Value());
}

BpString::BpString(const std::string& text, bool fixed) : BpCellText(text, fixed, false) {}

BpComposite::BpComposite(const std::string& format, bool fixed) : BpCellText(format, fixed, true) {}

void BpComposite::Add(const BpCellText& item) {
  value_.items.push_back(item.Value());
  value_.itemSublist.push_back(openSublist_);
}

void BpComposite::Sublist() { openSublist_ = ++sublistCount_; }

void BpComposite::EndSublist() { openSublist_ = 0; }

void BpComposite::Finish() { openSublist_ = 0; }

// Every message goes into the output, whatever `show` asks for: the host has
// no other place for it.
void BpError(const BpCellText& text, int /*show*/, int level) {
  hostlib::output::OutputTarget& target = hostlib::output::CurrentOutputTarget();
  target.TargetDocument().Add(
      hostlib::output::Message{target.CommandNumber(), level, text.Value()});
}
