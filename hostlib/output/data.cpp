// BpData of host/output.h.
#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "host/output.h"

BpData BpData::Boolean(bool value) {
  BpData data;
  data.kind_ = Kind::kBoolean;
  data.boolean_ = value;
  return data;
}

BpData BpData::Number(double value) {
  BpData data;
  data.kind_ = Kind::kNumber;
  data.number_ = value;
  return data;
}

BpData BpData::String(std::string value) {
  BpData data;
  data.kind_ = Kind::kString;
  data.string_ = std::move(value);
  return data;
}

BpData BpData::StringOrNull(std::string value) {
  return value.empty() ? BpData() : String(std::move(value));
}

BpData BpData::List() {
  BpData data;
  data.kind_ = Kind::kList;
  return data;
}

BpData BpData::Record() {
  BpData data;
  data.kind_ = Kind::kRecord;
  return data;
}

BpData& BpData::Append(BpData value) {
  if (kind_ == Kind::kList) values_.push_back(std::move(value));
  return *this;
}

BpData& BpData::Set(const std::string& key, BpData value) {
  if (kind_ != Kind::kRecord) return *this;
  const auto found = std::find(keys_.begin(), keys_.end(), key);
  if (found != keys_.end()) {
    values_[static_cast<std::size_t>(std::distance(keys_.begin(), found))] = std::move(value);
  } else {
    keys_.push_back(key);
    values_.push_back(std::move(value));
  }
  return *this;
}
