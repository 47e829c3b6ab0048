#include "hostlib/output/document.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace hostlib::output {

std::size_t Document::Add(Item item) {
  items_.push_back(std::move(item));
  return items_.size() - 1;
}

Table* Document::FindTable(std::size_t index) {
  return index < items_.size() ? std::get_if<Table>(&items_[index]) : nullptr;
}

int Document::Register(BpText text) {
  registered_.push_back(std::move(text));
  return static_cast<int>(registered_.size() - 1);
}

bool Document::IsRegistered(int handle) const {
  return handle >= 0 && static_cast<std::size_t>(handle) < registered_.size();
}

const BpText& Document::Registered(int handle) const {
  if (!IsRegistered(handle)) {
    throw std::out_of_range("no registered text with handle " + std::to_string(handle));
  }
  return registered_[static_cast<std::size_t>(handle)];
}

void Document::OpenProcedure() { openProcedures_.push_back(items_.size()); }

void Document::CloseProcedure() {
  if (openProcedures_.empty()) return;
  const std::size_t first = std::min(openProcedures_.back(), items_.size());
  openProcedures_.pop_back();
  for (std::size_t index = first; index < items_.size(); ++index) {
    if (Table* table = FindTable(index)) {
      for (Dimension& dimension : table->dimensions) dimension.current = -1;
    }
  }
}

int Document::ErrorCount() const {
  return static_cast<int>(std::count_if(items_.begin(), items_.end(), [](const Item& item) {
    const auto* message = std::get_if<Message>(&item);
    return message != nullptr && message->IsError();
  }));
}

void Document::Clear() {
  items_.clear();
  registered_.clear();
  openProcedures_.clear();
}

}  // namespace hostlib::output
