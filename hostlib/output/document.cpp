#include "hostlib/output/document.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace hostlib::output {

std::size_t Document::Add(Item item) {
  items_.push_back(std::move(item));
  return droppedItems_ + items_.size() - 1;
}

Table* Document::FindTable(std::size_t handle) {
  if (handle < droppedItems_ || handle - droppedItems_ >= items_.size()) return nullptr;
  return std::get_if<Table>(&items_[handle - droppedItems_]);
}

int Document::Register(BpText text) {
  registered_.push_back(std::move(text));
  return droppedRegistered_ + static_cast<int>(registered_.size() - 1);
}

bool Document::IsRegistered(int handle) const {
  return handle >= droppedRegistered_ &&
         static_cast<std::size_t>(handle - droppedRegistered_) < registered_.size();
}

const BpText& Document::Registered(int handle) const {
  if (!IsRegistered(handle)) {
    throw std::out_of_range("no registered text with handle " + std::to_string(handle));
  }
  return registered_[static_cast<std::size_t>(handle - droppedRegistered_)];
}

void Document::OpenProcedure() { openProcedures_.push_back(items_.size()); }

void Document::CloseProcedure() {
  if (openProcedures_.empty()) return;
  const std::size_t first = std::min(openProcedures_.back(), items_.size());
  openProcedures_.pop_back();
  for (std::size_t index = first; index < items_.size(); ++index) {
    if (Table* table = std::get_if<Table>(&items_[index])) {
      for (Dimension& dimension : table->dimensions) dimension.current = -1;
    }
  }
}

int Document::ErrorCount() const {
  return droppedErrors_ +
         static_cast<int>(std::count_if(items_.begin(), items_.end(), [](const Item& item) {
           const auto* message = std::get_if<Message>(&item);
           return message != nullptr && message->IsError();
         }));
}

void Document::Clear() {
  items_.clear();
  registered_.clear();
  openProcedures_.clear();
  droppedItems_ = 0;
  droppedErrors_ = 0;
  droppedRegistered_ = 0;
}

void Document::DropItems() {
  if (!openProcedures_.empty()) return;
  droppedErrors_ = ErrorCount();
  droppedItems_ += items_.size();
  droppedRegistered_ += static_cast<int>(registered_.size());
  items_.clear();
  registered_.clear();
}

}  // namespace hostlib::output
