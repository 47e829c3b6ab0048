#include "hostlib/data/codebook/slice_scan.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "hostlib/data/codebook/descriptor.h"
#include "hostlib/data/codebook/json_nesting.h"
#include "hostlib/data/name_index.h"

namespace hostlib::data {
namespace {

namespace spans = json_spans;
using Element = simdjson::dom::element;

// Where the walk is, in the grammar of the top level and its lists.
enum class State {
  kRoot,          // before the root's "{"
  kKeyOrEnd,      // after the root's "{"
  kKey,           // after a member's ","
  kColon,         // after a key
  kValue,         // after a key's ":"
  kInValue,       // within an object that is walked as a whole
  kAfterValue,    // after a member's value
  kElementOrEnd,  // after a top-level list's "["
  kElement,       // after an element's ","
  kInElement,     // within an element's brackets
  kAfterElement,  // after an element
  kEnd,           // after the root's "}"
};

enum class Key { kFields, kSets, kOther };

// +1 for a bracket that opens, -1 for one that closes.
constexpr std::array<std::int8_t, 256> kNesting = [] {
  std::array<std::int8_t, 256> nesting{};
  nesting['{'] = nesting['['] = 1;
  nesting['}'] = nesting[']'] = -1;
  return nesting;
}();

bool IsScalarStart(char c) {
  return kNesting[static_cast<unsigned char>(c)] == 0 && c != ',' && c != ':';
}

// The end of the value whose next token is at `next`.
std::size_t EndBefore(const char* text, std::size_t next) {
  while (next > 0 && (text[next - 1] == ' ' || text[next - 1] == '\n' || text[next - 1] == '\r' ||
                      text[next - 1] == '\t')) {
    --next;
  }
  return next;
}

// The place of the unescaped quote that opens the string left open at
// `end`; 0 for none.
std::size_t LastQuote(const char* text, std::size_t end) {
  while (end > 0) {
    const void* found = ::memrchr(text, '"', end);
    if (found == nullptr) return 0;
    const auto quote = static_cast<std::size_t>(static_cast<const char*>(found) - text);
    std::size_t slashes = 0;
    while (slashes < quote && text[quote - 1 - slashes] == '\\') ++slashes;
    if (slashes % 2 == 0) return quote;
    end = quote;
  }
  return 0;
}

// A slice of the file and what simdjson's first stage found in it: where
// each structural character is. Its values are parsed from there, by
// simdjson's second stage, without being copied out.
struct Slice {
  std::string text;             // the slice, with the padding the parser reads past it
  simdjson::dom::parser index;  // the first stage's findings (no document)
  std::size_t capacity = 0;

  // Elements nest below the root and a list; a top-level value, one level
  // less: for those the walk is stricter than need be, and leaves what it
  // refuses to the careful reader.
  static constexpr std::size_t kDepth = kMaxJsonNesting - 3;

  bool Allocate(std::size_t size) {
    text.resize(size + simdjson::SIMDJSON_PADDING);
    capacity = size;
    return index.allocate(size, kDepth) == simdjson::SUCCESS;
  }
  simdjson::internal::dom_parser_implementation& Stage() { return *index.implementation; }
};

// An element of a top-level list: its place in the file and the structural
// characters it begins at and that follows it, in its slice.
struct ElementAt {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::uint32_t first = 0;
  std::uint32_t next = 0;
};

// A slice's part of one top-level list: the beginning of a list, or
// elements; and what the parse found of them.
struct Part {
  Key key = Key::kOther;
  bool beginsList = false;  // no elements: a list of `key` begins
  std::vector<ElementAt> elements;
  std::size_t firstIndex = 0;  // of the first element, in its list

  std::vector<FieldEntry> fields;
  std::string names;
  std::optional<FieldFault> fieldFault;  // its index within the part
  std::vector<SetElement> sets;
};

// A slice's parts, to be parsed by whichever thread is free; it holds the
// slice until they are gathered.
struct Job {
  std::unique_ptr<Slice> slice;
  std::vector<Part> parts;
  bool makesSets = false;

  bool done = false;
  bool parsed = false;
  std::exception_ptr failure;  // of the parse itself (memory)

  void Clear() {
    slice.reset();
    parts.clear();
    makesSets = done = parsed = false;
    failure = nullptr;
  }
};

// Parses a job's elements from their slice and reads its fields or sets.
class JobParser {
 public:
  // Room for an element of a slice, made on the thread that makes the
  // parser: the memory a thread allocates for itself comes in fresh pages.
  JobParser(const SetSink* sets, std::size_t capacity) : sets_(sets) { Reserve(capacity); }

  void Reserve(std::size_t capacity) {
    if (document_.capacity() < capacity && document_.allocate(capacity) != simdjson::SUCCESS) {
      throw std::bad_alloc();
    }
  }

  // Parses the value of `slice` that begins at structural `first` and
  // ends before structural `next`; false when it is no JSON. This is the
  // second stage as simdjson runs it for a stream of documents: one value
  // from `next_structural_index` on. The walk found the value's brackets
  // balanced within the slice, so the stage stays within it.
  bool Parse(Slice& slice, std::uint32_t first, std::uint32_t next, Element& value) {
    Reserve(slice.capacity);
    auto& stage = slice.Stage();
    stage.next_structural_index = first;
    if (stage.stage2_next(document_) != simdjson::SUCCESS || stage.next_structural_index != next) {
      return false;
    }
    value = document_.root();
    return true;
  }

  void Run(Job& job) {
    try {
      job.parsed = true;
      for (Part& part : job.parts) {
        if (!part.beginsList && !Read(*job.slice, part)) {
          job.parsed = false;
          return;
        }
      }
    } catch (...) {
      job.failure = std::current_exception();
    }
  }

 private:
  bool Read(Slice& slice, Part& part) {
    const bool keep = part.key == Key::kFields || (part.key == Key::kSets && sets_ != nullptr);
    std::size_t i = part.firstIndex;
    for (const ElementAt& at : part.elements) {
      Element element;
      if (!Parse(slice, at.first, at.next, element)) return false;
      if (!keep) continue;
      if (part.key == Key::kFields) {
        if (!AddField(part, element, at.begin, at.end)) return false;
      } else {
        const std::size_t offset = slice.Stage().structural_indexes[at.first];
        const std::string_view bytes(slice.text.data() + offset, at.end - at.begin);
        part.sets.push_back(sets_->Read(element, bytes, i));
      }
      ++i;
    }
    return true;
  }

  static bool AddField(Part& part, const Element& field, std::size_t begin, std::size_t end) {
    if (end - begin > UINT32_MAX || part.names.size() > UINT32_MAX) return false;
    FieldEntry entry{begin, static_cast<std::uint32_t>(end - begin),
                     static_cast<std::uint32_t>(part.names.size())};
    const bool isObject = field.type() == simdjson::dom::element_type::OBJECT;
    bool hasName = false;
    bool isString = false;
    std::string_view name;
    if (isObject) {
      // A repeated key counts as its last value.
      for (const auto member : simdjson::dom::object(field)) {
        if (member.key != "name") continue;
        hasName = true;
        isString = member.value.type() == simdjson::dom::element_type::STRING;
        name = isString ? std::string_view(member.value) : std::string_view();
      }
    }
    const bool faulty = !isString || name.empty() || name.find('\0') != std::string_view::npos;
    if (faulty && !part.fieldFault) {
      part.fieldFault = FieldFault{part.fields.size(), isObject, hasName,
                                   isString ? std::optional<std::string>(name) : std::nullopt};
    }
    part.names.append(name);
    entry.nameSize = static_cast<std::uint32_t>(name.size());
    entry.nameHash = NameHash(name);
    part.fields.push_back(entry);
    return true;
  }

  const SetSink* sets_;
  simdjson::dom::document document_;
};

// Jobs in the file's order, run by a second thread as they come, and by the
// walk's own thread when it is ahead.
class JobQueue {
 public:
  JobQueue(const SetSink* sets, std::size_t capacity, bool threaded) : ownParser_(sets, capacity) {
    if (!threaded) return;
    workerParser_.emplace(sets, capacity);
    worker_ = std::thread([this] { Work(); });
  }
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;
  ~JobQueue() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    workReady_.notify_one();
    if (worker_.joinable()) worker_.join();
  }

  // The parser of this thread, for the top level's values.
  JobParser& OwnParser() { return ownParser_; }

  std::unique_ptr<Job> NewJob() {
    if (spare_.empty()) return std::make_unique<Job>();
    std::unique_ptr<Job> job = std::move(spare_.back());
    spare_.pop_back();
    job->Clear();
    return job;
  }

  // A job that makes sets is run here at once: the worker's own memory
  // arena would be fresh pages for their many objects.
  void Submit(std::unique_ptr<Job> job) {
    Job* const waiting = job.get();
    const bool anywhere = !job->makesSets;
    if (!anywhere) {
      ownParser_.Run(*job);
      job->done = true;
    }
    {
      const std::lock_guard lock(mutex_);
      order_.push_back(std::move(job));
      if (anywhere) waiting_.push_back(waiting);
    }
    workReady_.notify_one();
    // Ahead of the worker (or without one): parse a job here too. Each job
    // waiting holds a slice, whose memory is fresh pages when it is new: so
    // the worker is kept only a little behind.
    constexpr std::size_t kBacklog = 2;
    while (RunOneHere(worker_.joinable() ? kBacklog : 0)) {
    }
  }

  // Hands each job done, in the file's order, to `take`; with `all`, waits
  // for every job. False once `take` is.
  template <typename Take>
  bool Gather(bool all, Take&& take) {
    if (all) {
      while (RunOneHere(0)) {
      }
    }
    for (;;) {
      std::unique_ptr<Job> job;
      {
        std::unique_lock lock(mutex_);
        if (order_.empty()) return true;
        if (all) jobDone_.wait(lock, [this] { return order_.front()->done; });
        if (!order_.front()->done) return true;
        job = std::move(order_.front());
        order_.pop_front();
      }
      const bool taken = take(*job);
      spare_.push_back(std::move(job));
      if (!taken) return false;
    }
  }

 private:
  // Runs the first waiting job when more than `leave` wait.
  bool RunOneHere(std::size_t leave) {
    Job* job = nullptr;
    {
      const std::lock_guard lock(mutex_);
      if (waiting_.size() <= leave) return false;
      job = waiting_.front();
      waiting_.pop_front();
    }
    ownParser_.Run(*job);
    {
      const std::lock_guard lock(mutex_);
      job->done = true;
    }
    return true;
  }

  void Work() {
    for (;;) {
      Job* job = nullptr;
      {
        std::unique_lock lock(mutex_);
        workReady_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        job = waiting_.front();
        waiting_.pop_front();
      }
      workerParser_->Run(*job);
      {
        const std::lock_guard lock(mutex_);
        job->done = true;
      }
      jobDone_.notify_one();
    }
  }

  JobParser ownParser_;
  std::optional<JobParser> workerParser_;  // made here, with a worker
  std::mutex mutex_;
  std::condition_variable workReady_;
  std::condition_variable jobDone_;
  std::deque<std::unique_ptr<Job>> order_;  // not yet gathered
  std::deque<Job*> waiting_;                // not yet begun
  bool stopping_ = false;
  std::vector<std::unique_ptr<Job>> spare_;
  std::thread worker_;  // last: it starts once the rest is ready
};

class SliceScanner {
 public:
  SliceScanner(const SourceFile& source, SliceScan& scan, SetSink* sets, std::size_t sliceSize)
      : source_(source),
        scan_(scan),
        sets_(sets),
        jobs_(sets, std::min(sliceSize, std::max<std::size_t>(source.Size(), 1)),
              source.Size() > 2 * sliceSize) {}

  bool Run(std::size_t sliceSize) {
    std::size_t capacity = std::min(sliceSize, std::max<std::size_t>(source_.Size(), 1));
    while (resume_ < source_.Size()) {
      const std::size_t before = resume_;
      bool atEnd = false;
      if (!ScanSlice(capacity, atEnd) || !Gather(false)) return false;
      if (resume_ > before) continue;
      // Nothing in the slice was complete: a value larger than the slice.
      if (atEnd) return false;
      capacity *= 2;
    }
    if (!Gather(true) || state_ != State::kEnd) return false;
    if (scan_.anyMember) scan_.firstKeyIndent = IndentBefore(firstKeyBegin_);
    if (scan_.setsPresent) scan_.setsKeyIndent = IndentBefore(setsKeyBegin_);
    return true;
  }

 private:
  // A slice of `capacity` bytes: one whose job was gathered, or a new one.
  std::unique_ptr<Slice> TakeSlice(std::size_t capacity) {
    std::unique_ptr<Slice> slice;
    if (spareSlices_.empty()) {
      slice = std::make_unique<Slice>();
    } else {
      slice = std::move(spareSlices_.back());
      spareSlices_.pop_back();
    }
    if (slice->capacity != capacity && !slice->Allocate(capacity)) throw std::bad_alloc();
    return slice;
  }

  // Walks a slice from resume_; afterwards resume_ is past its last
  // complete part, and the slice's elements are handed to the job queue.
  bool ScanSlice(std::size_t capacity, bool& atEnd) {
    slice_ = TakeSlice(capacity);
    job_ = jobs_.NewJob();
    char* const text = slice_->text.data();
    base_ = resume_;
    const std::size_t size = source_.ReadInto(text, capacity, base_);
    atEnd = size < capacity || base_ + size >= source_.Size();
    std::size_t cut = atEnd ? size : CutOf(text, size);
    simdjson::error_code error = Stage1(text, cut);
    if (error == simdjson::UNCLOSED_STRING && !atEnd) {
      cut = LastQuote(text, cut);
      error = Stage1(text, cut);
    }
    if (error != simdjson::SUCCESS && error != simdjson::EMPTY) return false;
    const std::size_t count = error == simdjson::EMPTY ? 0 : slice_->Stage().n_structural_indexes;
    if (!Walk(text, cut, count)) return false;
    if (job_->parts.empty()) {
      spareSlices_.push_back(std::move(slice_));
      return true;
    }
    job_->slice = std::move(slice_);
    jobs_.Submit(std::move(job_));
    return true;
  }

  // After the slice's last line end, where no string of valid JSON is open;
  // else before its last character, which may be cut.
  static std::size_t CutOf(const char* text, std::size_t size) {
    if (const void* newline = ::memrchr(text, '\n', size)) {
      return static_cast<std::size_t>(static_cast<const char*>(newline) - text) + 1;
    }
    std::size_t cut = size == 0 ? 0 : size - 1;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return cut;
  }

  simdjson::error_code Stage1(const char* text, std::size_t size) {
    if (size == 0) return simdjson::EMPTY;
    return slice_->Stage().stage1(reinterpret_cast<const std::uint8_t*>(text), size,
                                  simdjson::stage1_mode::regular);
  }

  bool Walk(const char* text, std::size_t cut, std::size_t count) {
    const std::uint32_t* const structurals = slice_->Stage().structural_indexes.get();
    State state = state_;
    std::size_t committed = count;  // the structural last committed; count for none
    const auto commit = [&](std::size_t i) {
      committed = i;
      state_ = state;
    };
    std::size_t nested = 0;
    bool scalar = false;
    ElementAt element;
    std::uint32_t valueFirst = 0;
    for (std::size_t i = 0; i < count; ++i) {
      std::size_t at = structurals[i];
      char c = text[at];
      switch (state) {
        case State::kRoot:
          if (c != '{') return false;
          scan_.rootBegin = base_ + at;
          state = State::kKeyOrEnd;
          commit(i);
          break;
        case State::kKeyOrEnd:
          if (c == '}') {
            state = State::kEnd;
            commit(i);
            break;
          }
          [[fallthrough]];
        case State::kKey:
          if (c != '"' || !ReadKey(text, at, cut)) return false;
          state = State::kColon;
          break;
        case State::kColon:
          if (c != ':') return false;
          state = State::kValue;
          break;
        case State::kValue:
          member_.value.begin = base_ + at;
          valueFirst = static_cast<std::uint32_t>(i);
          inList_ = c == '[';
          if (inList_) {
            BeginList();
            state = State::kElementOrEnd;
            commit(i);
          } else if (c == '{') {
            nested = 1;
            state = State::kInValue;
          } else if (IsScalarStart(c)) {
            scalar = true;
            state = State::kAfterValue;
          } else {
            return false;
          }
          break;
        case State::kInValue:
        case State::kInElement:
          for (;;) {
            nested += kNesting[static_cast<unsigned char>(c)];
            if (nested == 0 || ++i == count) break;
            at = structurals[i];
            c = text[at];
          }
          if (nested != 0) break;  // the slice ends within the value
          if (state == State::kInValue) {
            member_.value.end = base_ + at + 1;
            state = State::kAfterValue;
          } else {
            element.end = at + 1;
            state = State::kAfterElement;
          }
          break;
        case State::kAfterValue:
          if (c != ',' && c != '}') return false;
          if (scalar) member_.value.end = base_ + EndBefore(text, at);
          scalar = false;
          if (!inList_ && !ValueIsJson(valueFirst, static_cast<std::uint32_t>(i))) return false;
          FinishMember();
          state = c == ',' ? State::kKey : State::kEnd;
          commit(i);
          break;
        case State::kElementOrEnd:
          if (c == ']') {
            member_.value.end = base_ + at + 1;
            state = State::kAfterValue;
            commit(i);
            break;
          }
          [[fallthrough]];
        case State::kElement:
          element.begin = at;
          element.first = static_cast<std::uint32_t>(i);
          if (kNesting[static_cast<unsigned char>(c)] > 0) {
            nested = 1;
            state = State::kInElement;
          } else if (IsScalarStart(c)) {
            scalar = true;
            state = State::kAfterElement;
          } else {
            return false;
          }
          break;
        case State::kAfterElement:
          if (c != ',' && c != ']') return false;
          if (scalar) element.end = EndBefore(text, at);
          scalar = false;
          element.next = static_cast<std::uint32_t>(i);
          batch_.push_back(element);
          if (c == ']') {
            AddBatch();
            member_.value.end = base_ + at + 1;
            state = State::kAfterValue;
          } else {
            state = State::kElement;
          }
          commit(i);
          break;
        case State::kEnd:
          return false;  // more than white space after the root
      }
    }
    AddBatch();
    // Past the last structural committed; past the whole slice when no
    // structural follows it (only white space does).
    if (count == 0 || committed == count - 1) {
      resume_ = base_ + cut;
    } else if (committed < count) {
      resume_ = base_ + structurals[committed] + 1;
    }
    return true;
  }

  bool ReadKey(const char* text, std::size_t at, std::size_t cut) {
    const char* const begin = text + at + 1;
    const auto* quote = static_cast<const char*>(std::memchr(begin, '"', cut - at - 1));
    if (quote == nullptr) return false;
    // A key with an escape is left to the careful reader.
    if (std::memchr(begin, '\\', static_cast<std::size_t>(quote - begin)) != nullptr) return false;
    const std::string_view key(begin, static_cast<std::size_t>(quote - begin));
    member_.key = {base_ + at, base_ + static_cast<std::size_t>(quote - text) + 1};
    key_ = key == kCodebookFieldsKey ? Key::kFields
           : key == kCodebookSetsKey ? Key::kSets
                                     : Key::kOther;
    if (!scan_.anyMember) firstKeyBegin_ = member_.key.begin;
    scan_.anyMember = true;
    if (key_ == Key::kSets) {
      scan_.setsPresent = true;
      setsKeyBegin_ = member_.key.begin;
    }
    if (key_ == Key::kFields) {
      scan_.fieldsPresent = true;
      scan_.fieldsAnArray = false;
      // Whatever its value, a later list of fields replaces an earlier one.
      AddListBeginning();
    }
    return true;
  }

  // A list of fields or sets begins.
  void BeginList() {
    listLength_ = 0;
    if (key_ == Key::kFields) scan_.fieldsAnArray = true;
    if (key_ == Key::kSets) {
      scan_.setsAnArray = true;
      AddListBeginning();
    }
  }

  // The white space that begins the line of the key at `place`; "" for a
  // key after other tokens on its line (or after an indent beyond reason).
  std::string IndentBefore(std::size_t place) const {
    constexpr std::size_t kLongestIndent = 4096;
    const std::size_t begin = place > kLongestIndent ? place - kLongestIndent : 0;
    const std::string before = source_.Read({begin, place});
    const std::string indent = spans::IndentBefore(before, before.size());
    return begin > 0 && indent.size() == before.size() ? std::string() : indent;
  }

  bool ValueIsJson(std::uint32_t first, std::uint32_t next) {
    Element value;
    return jobs_.OwnParser().Parse(*slice_, first, next, value);
  }

  void FinishMember() {
    scan_.topLevel.push_back(member_);
    scan_.lastValueEnd = member_.value.end;
    if (key_ == Key::kSets) scan_.setsValue = member_.value;
  }

  void AddListBeginning() {
    Part& part = job_->parts.emplace_back();
    part.key = key_;
    part.beginsList = true;
  }

  // The complete elements the slice holds of a list.
  void AddBatch() {
    if (batch_.empty()) return;
    Part& part = job_->parts.emplace_back();
    part.key = key_;
    part.elements.reserve(batch_.size());
    if (key_ == Key::kFields) {
      // Made here, not on the thread that fills them (fresh pages there).
      part.fields.reserve(batch_.size());
      part.names.reserve((batch_.back().end - batch_.front().begin) / 8);
    }
    for (ElementAt element : batch_) {
      element.begin += base_;
      element.end += base_;
      part.elements.push_back(element);
    }
    part.firstIndex = listLength_;
    listLength_ += batch_.size();
    batch_.clear();
    if (key_ == Key::kSets && sets_ != nullptr) job_->makesSets = true;
  }

  // Gathers the jobs done, in order; false once one failed.
  bool Gather(bool all) {
    return jobs_.Gather(all, [this](Job& job) {
      if (job.failure) std::rethrow_exception(job.failure);
      if (job.slice) spareSlices_.push_back(std::move(job.slice));
      if (!job.parsed) return false;
      for (Part& part : job.parts) {
        if (part.key == Key::kFields && !GatherFields(part)) return false;
        if (part.key == Key::kSets && sets_ != nullptr) {
          if (part.beginsList) sets_->BeginList();
          for (SetElement& set : part.sets) sets_->Add(std::move(set));
        }
      }
      return true;
    });
  }

  // Room for as many fields as the rest of the file holds at the first
  // job's density, and a tenth more: the list is made once, not copied as
  // it doubles.
  void ReserveFields(const Part& part) {
    const std::size_t base = part.elements.front().begin;
    const auto bytes = static_cast<double>(part.elements.back().end - base + 1);
    const double perByte = static_cast<double>(part.fields.size()) / bytes;
    const double namesPerByte = static_cast<double>(part.names.size()) / bytes;
    const double rest = static_cast<double>(source_.Size() - base);
    try {
      scan_.fields.reserve(static_cast<std::size_t>(1.1 * perByte * rest) + part.fields.size());
      scan_.names.reserve(static_cast<std::size_t>(1.1 * namesPerByte * rest) + part.names.size());
    } catch (const std::bad_alloc&) {
      // A system that grants no such room: the list grows as it goes.
    }
  }

  bool GatherFields(Part& part) {
    if (part.beginsList) {
      scan_.fields.clear();
      scan_.names.clear();
      return true;
    }
    if (part.fieldFault && !scan_.fieldFault) {
      scan_.fieldFault = std::move(part.fieldFault);
      scan_.fieldFault->index += scan_.fields.size();
    }
    if (scan_.fields.empty()) ReserveFields(part);
    const std::size_t namesBefore = scan_.names.size();
    if (namesBefore + part.names.size() > UINT32_MAX) return false;
    scan_.names.append(part.names);
    for (FieldEntry entry : part.fields) {
      entry.nameBegin += static_cast<std::uint32_t>(namesBefore);
      scan_.fields.push_back(entry);
    }
    return true;
  }

  const SourceFile& source_;
  SliceScan& scan_;
  SetSink* sets_;
  std::unique_ptr<Slice> slice_;  // the slice walked
  std::unique_ptr<Job> job_;      // its elements
  std::vector<std::unique_ptr<Slice>> spareSlices_;
  // Where the walk resumes: the place past the last complete part, and the
  // state there.
  std::size_t resume_ = 0;
  State state_ = State::kRoot;
  std::size_t base_ = 0;  // the place of the slice in the file
  // The member being walked; a list may span slices.
  spans::Member member_;
  Key key_ = Key::kOther;
  bool inList_ = false;
  std::size_t listLength_ = 0;  // the elements submitted of the list
  std::size_t firstKeyBegin_ = 0;
  std::size_t setsKeyBegin_ = 0;
  std::vector<ElementAt> batch_;  // complete elements in the slice, placed in it
  JobQueue jobs_;                 // last: its worker stops first
};

}  // namespace

bool ScanInSlices(const SourceFile& source, SliceScan& scan, SetSink* sets, std::size_t sliceSize) {
  sliceSize = std::max<std::size_t>(sliceSize, 1);
  return SliceScanner(source, scan, sets, sliceSize).Run(sliceSize);
}

}  // namespace hostlib::data
