// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_OUTPUT_FILE_H_
#define ORVA_TOOLS_FORMATS_OUTPUT_FILE_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string_view>

namespace orva {

/// What becomes of a file of the same name.
enum class Existing { kKeep, kReplace };

/// Throws Failure where something of that name is there and must stay.
void RefuseExisting(const std::filesystem::path& path, Existing existing);

/// Creates the folder and its parents. Throws Failure.
void MakeFolder(const std::filesystem::path& folder);

/// A result file that appears under its name only when it is complete: it is written as NAME.part and
/// renamed by Commit. Without Commit nothing is left (but see Keep). What is there and is no regular file (a
/// pipe, a device) is written directly. Every problem (disk full, no permission) throws Failure.
class OutputFile {
 public:
  explicit OutputFile(std::filesystem::path path, Existing existing = Existing::kReplace);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(const void* bytes, std::size_t size);
  void Write(std::string_view text) { Write(text.data(), text.size()); }
  /// For what cannot be made again: all that was written so far reaches the system at once, and is kept under
  /// the file's name when writing fails or ends without Commit.
  void Keep();
  void Commit();

 private:
  [[noreturn]] void Fail(int error) const;

  std::filesystem::path path_;
  std::filesystem::path part_;  ///< what is being written; equal to path_ when direct
  std::FILE* file_ = nullptr;
  bool done_ = false;
  std::uintmax_t size_ = 0;
  std::uintmax_t kept_ = 0;  ///< bytes that stay without Commit
};

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_OUTPUT_FILE_H_
