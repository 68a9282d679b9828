// A journal file as the client finds it at start, whatever a crash, a disk or a person left
// there: any bytes open as a journal (or are set aside for a new one) and list, never a
// crash, a hang or a leak.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "FuzzedText.h"
#include "qipg/Journal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path dir = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "fuzz-journal-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    return std::filesystem::path(pattern);
  }();
  const std::filesystem::path file = dir / "journal.sqlite3";
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  std::filesystem::permissions(file, std::filesystem::perms::owner_read |
                                         std::filesystem::perms::owner_write);
  qipg::Result<std::shared_ptr<qipg::Journal>> journal = qipg::Journal::open(file.string());
  qipg_fuzz::expect(journal.ok());
  if (journal) {
    auto entries = journal.value()->entries();
    if (entries) {
      for (const qipg::JournalEntry& entry : entries.value()) {
        qipg_fuzz::expect(!qipg::journalStateName(entry.state).empty());
      }
    }
  }
  std::error_code ignored;
  for (const auto& left : std::filesystem::directory_iterator(dir, ignored)) {
    std::filesystem::remove(left.path(), ignored);
  }
  return 0;
}
