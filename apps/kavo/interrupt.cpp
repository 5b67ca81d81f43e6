#include "apps/kavo/interrupt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace kavo::command {

namespace {

// All that the handler touches is atomic and free of locks.
std::atomic<int> signal_number{0};
std::atomic<int> num_stoppable{0};
// The names of temporary files; a null pointer where a slot is free.
std::array<std::atomic<const char*>, 8> temporary_files{};

extern "C" void OnSignal(int number) {
  const bool is_first = signal_number.exchange(number) == 0;
  if (is_first && num_stoppable.load() > 0) {
    return;
  }
  for (std::atomic<const char*>& file : temporary_files) {
    if (const char* const name = file.exchange(nullptr)) {
      unlink(name);
    }
  }
  _exit(128 + number);
}

[[noreturn]] void Fail(const std::string& name) {
  throw std::system_error(errno, std::generic_category(), name);
}

}  // namespace

void HandleSignals() {
  // Without a place among the standard descriptors, a file that is opened would get what is printed. What is
  // only read cannot be written to, and is noticed.
  while (true) {
    const int descriptor = open("/dev/null", O_RDONLY);
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
      close(descriptor);
      break;
    }
  }
  // Whoever does not want the rest of what is printed still gets the files.
  std::signal(SIGPIPE, SIG_IGN);
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction former {};
    // What the caller has the program ignore, as nohup does, it goes on ignoring.
    if (sigaction(number, nullptr, &former) == 0 && former.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

int Signal() { return signal_number.load(); }

int SignalStatus() { return 128 + Signal(); }

Stoppable::Stoppable() { ++num_stoppable; }
Stoppable::~Stoppable() { --num_stoppable; }

TemporaryFile::TemporaryFile(const std::string& folder, const std::string& prefix)
    : name_(folder + "/" + prefix + "XXXXXX") {
  // A signal between making the file and telling the handler its name would leave it behind.
  const Stoppable hold;
  descriptor_ = mkstemp(name_.data());
  if (descriptor_ < 0) {
    Fail(folder);
  }
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(descriptor_, 0666 & ~mask);
  for (std::size_t i = 0; i < temporary_files.size() && slot_ < 0; ++i) {
    const char* expected = nullptr;
    if (temporary_files[i].compare_exchange_strong(expected, name_.c_str())) {
      slot_ = static_cast<int>(i);
    }
  }
  if (slot_ < 0) {
    close(descriptor_);
    unlink(name_.c_str());
    throw std::logic_error("More temporary files than there are places for");
  }
}

TemporaryFile::~TemporaryFile() {
  close(descriptor_);
  if (slot_ >= 0 && temporary_files[static_cast<std::size_t>(slot_)].exchange(nullptr) != nullptr) {
    unlink(name_.c_str());
  }
}

void TemporaryFile::RenameTo(const std::string& name) {
  if (std::rename(name_.c_str(), name.c_str()) != 0) {
    Fail(name);
  }
  temporary_files[static_cast<std::size_t>(slot_)].store(nullptr);
  slot_ = -1;
}

}  // namespace kavo::command
