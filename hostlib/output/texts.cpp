// The cell texts and the message stream of host/output.h.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "host/output.h"
#include "hostlib/output/document.h"
#include "hostlib/output/message_context.h"
#include "hostlib/output/output_target.h"

namespace {

std::string FormatFixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

}  // namespace

BpCellText::BpCellText(std::string text, bool fixed, bool composite)
    : value_{std::move(text), fixed, composite, {}, {}} {}

BpCellText::~BpCellText() = default;

int BpCellText::Replicate(const BpCellText& text) {
  return hostlib::output::CurrentOutputTarget().TargetDocument().Register(text.Value());
}

BpString::BpString(const std::string& text, bool fixed) : BpCellText(text, fixed, false) {}

BpNumber::BpNumber(double value, int decimals)
    : BpCellText(FormatFixed(value, decimals), true, false) {
  value_.numeric = true;
  value_.number = value;
}

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
  hostlib::output::Message message{target.CommandNumber(), level, text.Value(),
                                   hostlib::output::CurrentMessagePlace()};
  const std::vector<std::string> notes = hostlib::output::NotesAfter(message);
  const hostlib::output::MessagePlace place = message.place;
  target.TargetDocument().Add(std::move(message));
  for (const std::string& note : notes) {
    target.TargetDocument().Add(hostlib::output::Message{
        target.CommandNumber(), hostlib::output::kNoteLevel, BpString(note, true).Value(), place});
  }
}
