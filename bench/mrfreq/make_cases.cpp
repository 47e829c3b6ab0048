// Writes the benchmark's case file and codebook: CASES rows x 200 columns,
// the same bytes on every run.
//   make_cases CASES FOLDER
// Columns: id; q01..q10, a dichotomy set counted at 1 (a blank now and then);
// region 1..5; v013..v200, digits 0..9.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int kColumns = 200;
constexpr int kMembers = 10;

std::uint64_t state = 0x9E3779B97F4A7C15ULL;
std::uint32_t NextRandom() {
  state = state * 6364136223846793005ULL + 1442695040888963407ULL;
  return static_cast<std::uint32_t>(state >> 33);
}

std::string ColumnName(int column) {
  char name[16];
  if (column == 0) return "id";
  if (column <= kMembers) {
    std::snprintf(name, sizeof name, "q%02d", column);
  } else if (column == kMembers + 1) {
    return "region";
  } else {
    std::snprintf(name, sizeof name, "v%03d", column + 1);
  }
  return name;
}

void WriteCodebook(const std::string& folder) {
  FILE* out = std::fopen((folder + "/codebook.json").c_str(), "w");
  std::fprintf(out, "{\"path\": \"cases.csv\", \"fields\": [\n");
  for (int column = 0; column < kColumns; ++column) {
    std::fprintf(out, "  {\"name\": \"%s\", \"type\": \"integer\"%s}%s\n", ColumnName(column).c_str(),
                 column == kMembers + 1
                     ? ", \"categories\": [{\"value\": 1, \"label\": \"North\"}, {\"value\": 2, "
                       "\"label\": \"East\"}, {\"value\": 3, \"label\": \"South\"}, {\"value\": 4, "
                       "\"label\": \"West\"}, {\"value\": 5, \"label\": \"Centre\"}]"
                     : "",
                 column + 1 < kColumns ? "," : "");
  }
  std::fprintf(out,
               "], \"multipleResponseSets\": [{\"name\": \"$q\", \"type\": \"dichotomies\", "
               "\"countedValue\": \"1\", \"categoryLabels\": \"variableLabels\", \"variables\": [");
  for (int member = 1; member <= kMembers; ++member) {
    std::fprintf(out, "\"%s\"%s", ColumnName(member).c_str(), member < kMembers ? ", " : "");
  }
  std::fprintf(out, "]}]}\n");
  std::fclose(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_cases CASES FOLDER\n");
    return 2;
  }
  const long cases = std::atol(argv[1]);
  const std::string folder = argv[2];
  WriteCodebook(folder);
  FILE* out = std::fopen((folder + "/cases.csv").c_str(), "w");
  static char buffer[1 << 20];
  std::setvbuf(out, buffer, _IOFBF, sizeof buffer);
  for (int column = 0; column < kColumns; ++column) {
    std::fprintf(out, "%s%c", ColumnName(column).c_str(), column + 1 < kColumns ? ',' : '\n');
  }
  std::string row;
  for (long id = 1; id <= cases; ++id) {
    row = std::to_string(id);
    for (int column = 1; column < kColumns; ++column) {
      row += ',';
      const std::uint32_t r = NextRandom();
      if (column <= kMembers) {
        if (r % 50 != 0) row += (r >> 8) % 3 == 0 ? '1' : '0';
      } else if (column == kMembers + 1) {
        row += static_cast<char>('1' + (r >> 8) % 5);
      } else {
        row += static_cast<char>('0' + (r >> 8) % 10);
      }
    }
    row += '\n';
    std::fwrite(row.data(), 1, row.size(), out);
  }
  return std::fclose(out) == 0 ? 0 : 1;
}
