// Data-source library: the active dataset, its variables and value labels,
// and its list of variable sets.
//
// Guarantees:
// - Variables are addressed by a zero-based index in column order.
// - FindVarIndex matches names without regard to letter case (simple Unicode
//   case folding) through an index, never by scanning the dictionary; it
//   returns -1 when no variable has the name.
// - GetType(): 0 numeric; above 0 the width in bytes of a string variable.
// - GetLabel() of a variable is null when it has no label, never empty.
// - A VORN_Variable reference stays valid while the dictionary is unchanged.
// - VariableSets(ds, 1) returns the stored multiple response sets in stored
//   order (kinds 1 and 2 only); SaveVariableSets(list, ds, 1) replaces them
//   by exactly that list, in that order.
// - VariableSet is a value type; GetName(kUpperCase) is the host's
//   upper-casing of the name as stored. Copies share their contents until
//   one of them changes; a stored set may be read from its store only when
//   more than its name is asked for (a store fault then throws from there).
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

// The value labels of one variable (host side: what a handle points at).
struct VORN_ValueLabels {
  std::map<double, std::string> numeric;
  std::map<std::string, std::string> text;
};

// A handle to a variable's value labels.
class VORN_VLImplPointer {
 public:
  VORN_VLImplPointer();
  explicit VORN_VLImplPointer(std::shared_ptr<const VORN_ValueLabels> labels);
  const VORN_ValueLabels& Labels() const;

 private:
  std::shared_ptr<const VORN_ValueLabels> labels_;
};

class VORN_Variable {
 public:
  // Host side. type: 0 numeric, above 0 string width. An empty label is none.
  VORN_Variable(std::string name, int type, std::string label = {},
                VORN_ValueLabels valueLabels = {});

  const char* GetName() const;
  int GetType() const;
  const char* GetLabel() const;  // null when the variable has no label
  const VORN_VLImplPointer& GetValueLabels() const;

 private:
  std::string name_;
  int type_;
  std::string label_;
  VORN_VLImplPointer valueLabels_;
};

// A look-up over one variable's value labels.
class VORN_ValueLabelMap {
 public:
  explicit VORN_ValueLabelMap(const VORN_VLImplPointer& handle);
  ~VORN_ValueLabelMap();
  VORN_ValueLabelMap(const VORN_ValueLabelMap&) = delete;
  VORN_ValueLabelMap& operator=(const VORN_ValueLabelMap&) = delete;

  // Makes the map ready for look-ups; called once before the first.
  void Reset();
  // The label of the value, or null when it has none. Numbers match exactly;
  // texts match byte for byte (blanks and letter case count).
  const char* GetLabel(const double& value) const;
  const char* GetLabel(const std::string& value) const;

 private:
  VORN_VLImplPointer handle_;
  bool ready_ = false;
};

class VORN_DataSource {
 public:
  // What the host keeps behind a data source (the dataset it views); opaque
  // here: a command module gets its data sources from the host.
  struct HostState;
  explicit VORN_DataSource(std::shared_ptr<HostState> state);
  VORN_DataSource(const VORN_DataSource&) = delete;
  VORN_DataSource& operator=(const VORN_DataSource&) = delete;
  virtual ~VORN_DataSource();

  // The data source whose dictionary a procedure reads and changes.
  virtual const VORN_DataSource* GetParentSource() const;

  unsigned int ColumnCount() const;
  int FindVarIndex(const char* name, int selector) const;
  const VORN_Variable& GetVariable(int index) const;

  const HostState& Host() const { return *state_; }

 private:
  std::shared_ptr<HostState> state_;
};

// The running procedure's view of the active dataset.
class ProcedureDataSource final : public VORN_DataSource {
 public:
  ProcedureDataSource();
  ~ProcedureDataSource() override;
  const VORN_DataSource* GetParentSource() const override;
};

enum ChangeCase : int {
  kUpperCase = 1,
  kAsStored = 2,
};

enum VarSetsType : int {
  kMultipleResponseSets = 1,
};

class VariableSet;

// Host side: where a stored set's contents come from when they are first
// asked for. Load(index, name) returns the set whole, under that name.
class VariableSetSource {
 public:
  virtual ~VariableSetSource() = default;
  virtual VariableSet Load(std::size_t index, const std::string& name) const = 0;
};

class VariableSet {
 public:
  enum VariableSetType : int {
    kVarSet = 0,
    kMultipleCategorySet = 1,
    kMultipleDichotomySet = 2,
  };

  VariableSet(const std::string& name, VariableSetType type);
  // Host side: the set `index` of `source`, read from it when first needed.
  VariableSet(std::string name, std::shared_ptr<const VariableSetSource> source, std::size_t index);
  VariableSet(const VariableSet&);
  VariableSet(VariableSet&&) noexcept;
  VariableSet& operator=(const VariableSet&);
  VariableSet& operator=(VariableSet&&) noexcept;
  ~VariableSet();

  void SetLabel(const std::string& label);
  void SetValue(const std::string& value);
  void LabelSetByVariable(bool fromVariables);
  void UseVariableCategoryLabels(bool useValueLabels);
  void AddVariableName(const std::string& name);

  std::string GetName(ChangeCase changeCase) const;
  VariableSetType GetType() const;
  const std::string& GetLabel() const;
  const std::string& GetValue() const;
  bool qLabelSetByVariable() const;
  bool qUseVariableCategoryLabels() const;
  std::vector<std::string> GetVariableNames(ChangeCase changeCase) const;

  // Host side: room for `count` variable names, for a store that knows how
  // many it is about to add.
  void ReserveVariableNames(std::size_t count);

  // Host side: what a dataset store keeps of a set without interpreting it
  // (serialized by the store). A new set has none; assignment replaces it.
  const std::string& StoreExtras() const;
  void SetStoreExtras(std::string extras);

  // Host side: whether this is a store's set, unchanged since it was read;
  // then which: the set StoredIndex() of StoredSource().
  bool IsStoredUnchanged() const { return source_ != nullptr; }
  const VariableSetSource* StoredSource() const { return source_.get(); }
  std::size_t StoredIndex() const { return index_; }

  friend bool operator==(const VariableSet&, const VariableSet&);

 private:
  struct Contents {
    VariableSetType type = kVarSet;
    std::string label;
    std::string value;
    bool labelSetByVariable = false;
    bool useVariableCategoryLabels = false;
    std::vector<std::string> variableNames;
    std::string storeExtras;
    friend bool operator==(const Contents&, const Contents&) = default;
  };

  const Contents& Read() const;
  Contents& Change();

  std::string name_;
  // Null until a stored set is first read; shared between copies until one
  // of them changes.
  mutable std::shared_ptr<Contents> contents_;
  // The stored set this one still is, unchanged (null once it changed).
  std::shared_ptr<const VariableSetSource> source_;
  std::size_t index_ = 0;
};

std::vector<VariableSet> VariableSets(const VORN_DataSource& dataSource, VarSetsType type);
void SaveVariableSets(const std::vector<VariableSet>& sets, VORN_DataSource& dataSource,
                      VarSetsType type);
// The same, taking the list rather than copying it.
void SaveVariableSets(std::vector<VariableSet>&& sets, VORN_DataSource& dataSource,
                      VarSetsType type);
