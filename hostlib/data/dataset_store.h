// Where a dataset lives between runs: a file that the program loads once and
// writes back after each command that saved sets.
//
// Each command is one unit of work: BeginCommand takes the store's lock (no
// other process changes the dataset until EndCommand or AbortCommand) and
// hands back the dataset anew when another process changed it since this
// store last read or wrote it. Save inside a command belongs to that unit.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hostlib/data/dataset.h"

namespace hostlib::data {

// A codebook descriptor (hostlib/data/codebook/descriptor.h): the form that
// holds everything either kind of dataset file can.
struct Descriptor;

// A whole dataset file's contents, on its way into another file.
struct DatasetContents {
  Dataset dataset;
  std::shared_ptr<const Descriptor> descriptor;
};

class DatasetStore {
 public:
  DatasetStore() = default;
  DatasetStore(const DatasetStore&) = delete;
  DatasetStore& operator=(const DatasetStore&) = delete;
  virtual ~DatasetStore() = default;

  virtual const std::filesystem::path& Path() const = 0;

  // Reads the file. Throws DatasetError (naming the file, the place and the
  // fault) when it cannot be read or breaks the format's rules.
  virtual Dataset Load() = 0;

  // Whether Save(dataset) would change what the file holds. A store that has
  // not loaded its file always answers true.
  virtual bool WouldChange(const Dataset& dataset) const = 0;

  // Writes the dataset back, all or nothing: on failure the file is as it
  // was, and DatasetError names the file and the fault. Whatever the store
  // read and does not interpret is written back unchanged.
  virtual void Save(const Dataset& dataset) = 0;

  // Takes the lock for one command, waiting for it up to `timeout`; throws
  // DatasetError when the wait is longer or the file has become unreadable
  // (the lock is then not held). Returns the dataset as the file now holds
  // it when that differs from what this store last read or wrote.
  virtual std::optional<Dataset> BeginCommand(std::chrono::milliseconds timeout) = 0;
  // Makes what Save wrote during the command final and releases the lock.
  // Throws DatasetError when that fails; then nothing of the command is kept
  // and the lock is released all the same.
  virtual void EndCommand() = 0;
  // Drops what the command wrote, where the store can, and releases the lock.
  virtual void AbortCommand() noexcept = 0;

  // Reads the whole file for a copy into another: the dataset and the
  // descriptor that holds all the file holds, interpreted or not. Throws as
  // Load.
  virtual DatasetContents Export() = 0;
  // Makes the file, which must not exist yet, holding `contents`, all or
  // nothing. Throws DatasetError, naming the file and the fault.
  virtual void Create(const DatasetContents& contents) = 0;

  // The JSON text of each of `keys` at the top level of the file, when it is
  // a JSON object (the last of a repeated key): what the file says beside
  // its dataset. A store that read its file answers from what it read.
  virtual std::optional<std::map<std::string, std::string>> TopLevelMembers(
      const std::vector<std::string>& keys);
};

// One command's hold on a store: aborts the command unless Finish was called.
class CommandScope {
 public:
  CommandScope(DatasetStore& store, std::chrono::milliseconds timeout)
      : store_(&store), reloaded_(store.BeginCommand(timeout)) {}
  CommandScope(const CommandScope&) = delete;
  CommandScope& operator=(const CommandScope&) = delete;
  ~CommandScope() {
    if (store_ != nullptr) store_->AbortCommand();
  }

  // The dataset reloaded when the command began, when it changed.
  std::optional<Dataset>& Reloaded() { return reloaded_; }
  // Ends the command; throws as DatasetStore::EndCommand.
  void Finish() {
    DatasetStore* store = std::exchange(store_, nullptr);
    store->EndCommand();
  }

 private:
  DatasetStore* store_;
  std::optional<Dataset> reloaded_;
};

// What a command that waited `timeout` in vain for the lock is told.
std::string LockTimeoutMessage(const std::filesystem::path& path,
                               std::chrono::milliseconds timeout);

}  // namespace hostlib::data
