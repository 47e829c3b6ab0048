// The set list a command works on, against a plain list searched from the
// start at every step: long runs of random steps, so that both the scanned
// and the indexed look-ups, and the index rebuilt after a sort, are met.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "backend/mrset/mrsetapply.h"

namespace {

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// What the list must do, step by step, in the plainest way.
class PlainList {
 public:
  explicit PlainList(std::vector<VariableSet> sets) : sets_(std::move(sets)) {}
  void Store(const VariableSet& set) {
    for (VariableSet& stored : sets_) {
      if (Upper(stored.GetName(kAsStored)) == Upper(set.GetName(kAsStored))) {
        stored = set;
        return;
      }
    }
    sets_.push_back(set);
  }
  bool Delete(const std::string& name) {
    const auto kept = std::remove_if(sets_.begin(), sets_.end(), [&](const VariableSet& set) {
      return Upper(set.GetName(kAsStored)) == Upper(name);
    });
    const bool found = kept != sets_.end();
    sets_.erase(kept, sets_.end());
    return found;
  }
  void SortByName() {
    std::stable_sort(sets_.begin(), sets_.end(), [](const VariableSet& a, const VariableSet& b) {
      return Upper(a.GetName(kAsStored)) < Upper(b.GetName(kAsStored));
    });
  }
  const std::vector<VariableSet>& Sets() const { return sets_; }

 private:
  std::vector<VariableSet> sets_;
};

TEST(IndexedSetListTest, DoesWhatAPlainListDoesOverLongRuns) {
  std::mt19937 random(7);
  for (int run = 0; run < 20; ++run) {
    std::vector<VariableSet> initial;
    for (int i = 0; i < run * 5; ++i) {
      initial.emplace_back("$s" + std::to_string(i * 7 % 101), VariableSet::kMultipleCategorySet);
    }
    IndexedSetList list(initial);
    PlainList plain(initial);
    for (int step = 0; step < 300; ++step) {
      // Names in either case, from a pool small enough to meet stored ones.
      std::string name = "$s" + std::to_string(random() % 120);
      if (random() % 2) name = Upper(name);
      switch (random() % 8) {
        case 0:
          list.SortByName();
          plain.SortByName();
          break;
        case 1:
        case 2:
          ASSERT_EQ(list.Delete(name), plain.Delete(name)) << name;
          break;
        default: {
          VariableSet set(name, VariableSet::kMultipleDichotomySet);
          set.SetLabel("step " + std::to_string(step));
          list.Store(set);
          plain.Store(set);
        }
      }
      ASSERT_EQ(list.Empty(), plain.Sets().empty());
    }
    ASSERT_EQ(list.Sets(), plain.Sets()) << "run " << run;
  }
}

}  // namespace
