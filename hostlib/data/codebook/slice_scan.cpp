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

// A slice's elements of one top-level list, copied out of the slice as an
// array, to be parsed by whichever thread is free; and what the parse found.
struct Job {
  Key key = Key::kOther;
  bool beginsList = false;                                    // no elements: a list of `key` begins
  std::string bytes;                                          // "[", the elements, "]"
  std::size_t base = 0;                                       // the place in the file of bytes[1]
  std::vector<std::pair<std::size_t, std::size_t>> elements;  // their places in the file
  std::size_t firstIndex = 0;                                 // of the first element, in its list

  bool done = false;
  bool parsed = false;
  std::exception_ptr failure;  // of the parse itself (memory)
  std::vector<FieldEntry> fields;
  std::string names;
  std::optional<FieldFault> fieldFault;  // its index within the job
  std::vector<SetElement> sets;

  void Clear() {
    beginsList = done = parsed = false;
    bytes.clear();
    elements.clear();
    failure = nullptr;
    fields.clear();
    names.clear();
    fieldFault.reset();
    sets.clear();
  }
};

// Parses a job's array and reads its fields or sets.
class JobParser {
 public:
  // Room for a slice, made on the thread that makes the parser: the memory
  // a thread allocates for itself comes in fresh pages.
  JobParser(const SetSink* sets, std::size_t sliceSize) : sets_(sets) {
    // A slice's elements sit three levels down (the root, the list).
    // simdjson makes a parser's document at its first parse; it is made
    // here instead, through the member it keeps public for that.
    if (parser_.allocate(sliceSize + 2, kMaxJsonNesting - 2) != simdjson::SUCCESS ||
        parser_.doc.allocate(sliceSize + 2) != simdjson::SUCCESS) {
      throw std::bad_alloc();
    }
  }

  // Whether `size` bytes at `text` (with padding after them) are JSON.
  bool IsJson(const char* text, std::size_t size) {
    Element element;
    return parser_.parse(text, size, false).get(element) == simdjson::SUCCESS;
  }

  void Run(Job& job) {
    try {
      Element array;
      job.parsed =
          job.beginsList ||
          parser_.parse(job.bytes.data(), job.bytes.size(), false).get(array) == simdjson::SUCCESS;
      if (job.parsed && !job.beginsList) Read(job, array);
    } catch (...) {
      job.failure = std::current_exception();
    }
  }

 private:
  void Read(Job& job, const Element& array) {
    if (job.key == Key::kOther || (job.key == Key::kSets && sets_ == nullptr)) return;
    const simdjson::dom::array elements(array);
    if (elements.size() != job.elements.size()) {
      job.parsed = false;
      return;
    }
    std::size_t i = 0;
    for (const Element element : elements) {
      const auto [begin, end] = job.elements[i];
      if (job.key == Key::kFields) {
        AddField(job, element, begin, end);
      } else {
        const std::string_view bytes(job.bytes.data() + 1 + (begin - job.base), end - begin);
        job.sets.push_back(sets_->Read(element, bytes, job.firstIndex + i));
      }
      ++i;
    }
  }

  static void AddField(Job& job, const Element& field, std::size_t begin, std::size_t end) {
    FieldEntry entry{begin, end, job.names.size(), 0};
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
    if (faulty && !job.fieldFault) {
      job.fieldFault = FieldFault{job.fields.size(), isObject, hasName,
                                  isString ? std::optional<std::string>(name) : std::nullopt};
    }
    job.names.append(name);
    entry.nameSize = static_cast<std::uint32_t>(name.size());
    entry.nameHash = NameHash(name);
    job.fields.push_back(entry);
  }

  const SetSink* sets_;
  simdjson::dom::parser parser_;
};

// Jobs in the file's order, run by a second thread as they come, and by the
// walk's own thread when it is ahead.
class JobQueue {
 public:
  JobQueue(const SetSink* sets, std::size_t sliceSize, bool threaded)
      : sliceSize_(sliceSize), ownParser_(sets, sliceSize) {
    if (!threaded) return;
    workerParser_.emplace(sets, sliceSize);
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

  // With room for the fields of a slice (of 64 bytes or more), made here.
  // The parser of this thread, for the top level's values.
  JobParser& OwnParser() { return ownParser_; }

  std::unique_ptr<Job> NewJob() {
    if (spare_.empty()) {
      auto job = std::make_unique<Job>();
      job->bytes.reserve(sliceSize_ + 2 + simdjson::SIMDJSON_PADDING);
      job->fields.reserve(sliceSize_ / 64);
      job->names.reserve(sliceSize_ / 16);
      return job;
    }
    std::unique_ptr<Job> job = std::move(spare_.back());
    spare_.pop_back();
    job->Clear();
    return job;
  }

  // A job that makes many objects is run here at once: the worker's own
  // memory arena would be fresh pages.
  void Submit(std::unique_ptr<Job> job, bool anywhere) {
    Job* const waiting = job.get();
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
    // Well ahead of the worker (or without one): parse a job here too. The
    // worker's backlog is what it parses while this thread reads the sets,
    // which come last and are read here.
    constexpr std::size_t kBacklog = 16;
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

  std::size_t sliceSize_;
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
    if (!Allocate(capacity)) return false;
    while (resume_ < source_.Size()) {
      const std::size_t before = resume_;
      bool atEnd = false;
      if (!ScanSlice(capacity, atEnd) || !Gather(false)) return false;
      if (resume_ > before) continue;
      // Nothing in the slice was complete: a value larger than the slice.
      if (atEnd || !Allocate(capacity *= 2)) return false;
    }
    if (!Gather(true) || state_ != State::kEnd) return false;
    if (scan_.anyMember) scan_.firstKeyIndent = IndentBefore(firstKeyBegin_);
    if (scan_.setsPresent) scan_.setsKeyIndent = IndentBefore(setsKeyBegin_);
    return true;
  }

 private:
  bool Allocate(std::size_t capacity) {
    // The padding the parser reads past the end.
    buffer_.resize(capacity + simdjson::SIMDJSON_PADDING);
    return cutter_.allocate(capacity, 1) == simdjson::SUCCESS;
  }

  // Walks the slice from resume_; afterwards resume_ is past its last
  // complete part.
  bool ScanSlice(std::size_t capacity, bool& atEnd) {
    char* const text = buffer_.data();
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
    const std::size_t count =
        error == simdjson::EMPTY ? 0 : cutter_.implementation->n_structural_indexes;
    return Walk(text, cut, count);
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
    return cutter_.implementation->stage1(reinterpret_cast<const std::uint8_t*>(text), size,
                                          simdjson::stage1_mode::regular);
  }

  bool Walk(const char* text, std::size_t cut, std::size_t count) {
    const std::uint32_t* const structurals = cutter_.implementation->structural_indexes.get();
    State state = state_;
    std::size_t committed = count;  // the structural last committed; count for none
    const auto commit = [&](std::size_t i) {
      committed = i;
      state_ = state;
    };
    std::size_t nested = 0;
    bool scalar = false;
    std::size_t elementBegin = 0;
    std::size_t elementEnd = 0;
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
            elementEnd = at + 1;
            state = State::kAfterElement;
          }
          break;
        case State::kAfterValue:
          if (c != ',' && c != '}') return false;
          if (scalar) member_.value.end = base_ + EndBefore(text, at);
          scalar = false;
          if (!inList_ && !ValueIsJson(text)) return false;
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
          elementBegin = at;
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
          if (scalar) elementEnd = EndBefore(text, at);
          scalar = false;
          batch_.emplace_back(elementBegin, elementEnd);
          if (c == ']') {
            SubmitBatch(text);
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
    SubmitBatch(text);
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
      auto job = jobs_.NewJob();
      job->key = Key::kFields;
      job->beginsList = true;
      jobs_.Submit(std::move(job), false);
    }
    return true;
  }

  // A list of fields or sets begins.
  void BeginList() {
    listLength_ = 0;
    if (key_ == Key::kFields) scan_.fieldsAnArray = true;
    if (key_ == Key::kSets) {
      scan_.setsAnArray = true;
      auto job = jobs_.NewJob();
      job->key = Key::kSets;
      job->beginsList = true;
      jobs_.Submit(std::move(job), false);
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

  bool ValueIsJson(const char* text) {
    return jobs_.OwnParser().IsJson(text + (member_.value.begin - base_),
                                    member_.value.end - member_.value.begin);
  }

  void FinishMember() {
    scan_.topLevel.push_back(member_);
    scan_.lastValueEnd = member_.value.end;
    if (key_ == Key::kSets) scan_.setsValue = member_.value;
  }

  // The complete elements the slice holds of a list, copied out as an array.
  void SubmitBatch(const char* text) {
    if (batch_.empty()) return;
    auto job = jobs_.NewJob();
    job->key = key_;
    const std::size_t begin = batch_.front().first;
    const std::size_t end = batch_.back().second;
    job->bytes.reserve(end - begin + 2 + simdjson::SIMDJSON_PADDING);
    job->bytes.append(1, '[').append(text + begin, end - begin).append(1, ']');
    job->base = base_ + begin;
    for (const auto& [elementBegin, elementEnd] : batch_) {
      job->elements.emplace_back(base_ + elementBegin, base_ + elementEnd);
    }
    job->firstIndex = listLength_;
    listLength_ += batch_.size();
    batch_.clear();
    const bool makesSets = key_ == Key::kSets && sets_ != nullptr;
    jobs_.Submit(std::move(job), !makesSets);
  }

  // Gathers the jobs done, in order; false once one failed.
  bool Gather(bool all) {
    return jobs_.Gather(all, [this](Job& job) {
      if (job.failure) std::rethrow_exception(job.failure);
      if (!job.parsed) return false;
      if (job.key == Key::kFields) GatherFields(job);
      if (job.key == Key::kSets && sets_ != nullptr) {
        if (job.beginsList) sets_->BeginList();
        for (SetElement& set : job.sets) sets_->Add(std::move(set));
      }
      return true;
    });
  }

  // Room for as many fields as the rest of the file holds at the first
  // job's density, and a tenth more: the list is made once, not copied as
  // it doubles.
  void ReserveFields(const Job& job) {
    const double perByte = static_cast<double>(job.fields.size()) / job.bytes.size();
    const double namesPerByte = static_cast<double>(job.names.size()) / job.bytes.size();
    const double rest = static_cast<double>(source_.Size() - job.base);
    try {
      scan_.fields.reserve(static_cast<std::size_t>(1.1 * perByte * rest) + job.fields.size());
      scan_.names.reserve(static_cast<std::size_t>(1.1 * namesPerByte * rest) + job.names.size());
    } catch (const std::bad_alloc&) {
      // A system that grants no such room: the list grows as it goes.
    }
  }

  void GatherFields(Job& job) {
    if (job.beginsList) {
      scan_.fields.clear();
      scan_.names.clear();
      return;
    }
    if (job.fieldFault && !scan_.fieldFault) {
      scan_.fieldFault = std::move(job.fieldFault);
      scan_.fieldFault->index += scan_.fields.size();
    }
    if (scan_.fields.empty()) ReserveFields(job);
    const std::size_t namesBefore = scan_.names.size();
    scan_.names.append(job.names);
    for (FieldEntry entry : job.fields) {
      entry.nameBegin += namesBefore;
      scan_.fields.push_back(entry);
    }
  }

  const SourceFile& source_;
  SliceScan& scan_;
  SetSink* sets_;
  std::string buffer_;
  simdjson::dom::parser cutter_;  // finds a slice's structure
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
  std::vector<std::pair<std::size_t, std::size_t>> batch_;  // complete elements in the slice
  JobQueue jobs_;                                           // last: its worker stops first
};

}  // namespace

bool ScanInSlices(const SourceFile& source, SliceScan& scan, SetSink* sets, std::size_t sliceSize) {
  sliceSize = std::max<std::size_t>(sliceSize, 1);
  return SliceScanner(source, scan, sets, sliceSize).Run(sliceSize);
}

}  // namespace hostlib::data
