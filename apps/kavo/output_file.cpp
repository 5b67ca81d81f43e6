#include "apps/kavo/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "apps/kavo/command.h"
#include "apps/kavo/page.h"

namespace kavo::command {

namespace {

namespace fs = std::filesystem;

// Where a name leads to, also if there is nothing yet: links are followed, at the end of a chain too.
fs::path TargetOf(const fs::path& file) {
  constexpr int kMaxLinks = 40;
  fs::path target = file;
  for (int i = 0; i < kMaxLinks && fs::is_symlink(fs::symlink_status(target)); ++i) {
    const fs::path next = fs::read_symlink(target);
    target = next.is_absolute() ? next : target.parent_path() / next;
  }
  return target;
}

void WriteAll(int descriptor, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
    if (count < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category());
    }
    done += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
}

}  // namespace

OutputFile::OutputFile(std::string option, const std::optional<std::string>& file,
                       const std::vector<std::pair<std::string, std::string>>& inputs)
    : option_(std::move(option)), file_(file) {
  if (!file_ || IsStandardOutput()) {
    return;
  }
  if (file_->empty()) {
    throw UnusableInput(option_ + ": expected the name of a file, found an empty one");
  }
  try {
    const fs::path target = TargetOf(*file_);
    target_ = target.string();
    const fs::file_status status = fs::status(target);
    if (fs::is_directory(status)) {
      throw UnusableInput(option_ + " " + *file_ + ": is a folder, expected a file");
    }
    if (fs::exists(status)) {
      for (const auto& [role, input] : inputs) {
        if (fs::exists(input) && fs::equivalent(input, target)) {
          throw UnusableInput(option_ + " " + *file_ + ": would be written over an input");
        }
      }
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
      descriptor_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
      if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), *file_);
      }
      return;
    }
    if (fs::exists(status) && access(target_.c_str(), W_OK) != 0) {
      throw std::system_error(errno, std::generic_category(), *file_);
    }
    const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    temporary_ = std::make_unique<TemporaryFile>(folder.string(), "." + target.filename().string() + ".");
    struct stat former {};
    if (stat(target_.c_str(), &former) == 0) {
      fchmod(temporary_->Descriptor(), former.st_mode & 07777);
    }
  } catch (const std::system_error& error) {
    throw UnusableInput(option_ + " " + *file_ + ": cannot be written: " + error.code().message());
  }
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

bool OutputFile::IsSameAs(const OutputFile& other) const {
  return temporary_ && other.temporary_ &&
         fs::weakly_canonical(target_) == fs::weakly_canonical(other.target_);
}

void OutputFile::Write(const std::string& text) {
  try {
    if (!temporary_) {
      WriteAll(descriptor_, text);
      return;
    }
    WriteAll(temporary_->Descriptor(), text);
    // A full disk may only show itself here.
    if (fsync(temporary_->Descriptor()) != 0) {
      throw std::system_error(errno, std::generic_category());
    }
    temporary_->RenameTo(target_);
    temporary_.reset();
  } catch (const std::system_error& error) {
    throw UnusableInput(option_ + " " + *file_ + ": cannot be written: " + error.code().message());
  }
}

void CheckPageFile(const std::optional<std::string>& file) {
  if (file) {
    RequirePage("--html");
    if (file == "-") {
      throw UnusableInput("--html -: expected the name of a file");
    }
  }
}

}  // namespace kavo::command
