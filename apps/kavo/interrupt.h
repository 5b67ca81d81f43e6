#pragma once

#include <string>

namespace kavo::command {

// SIGINT, SIGTERM and SIGHUP. While there is nothing yet that would be lost they end the program at once;
// while work is under way that can be stopped they ask it to stop, and a second one ends the program at once.
// Either way temporary files go.

//! To be called once, before anything else of this header. A reader that goes away is no signal but a failure
//! to write, and so is a standard output that is closed.
void HandleSignals();

//! The number of the signal that has come; zero until then. Any thread may ask.
int Signal();

//! The exit status of a program that a signal ended: 128 and its number.
int SignalStatus();

//! While one lives, a signal does not end the program: the work polls `Signal` and stops by itself.
class Stoppable {
 public:
  Stoppable();
  Stoppable(const Stoppable&) = delete;
  Stoppable& operator=(const Stoppable&) = delete;
  ~Stoppable();
};

//! A file that is removed when it is destroyed, or when a signal ends the program, unless kept.
class TemporaryFile {
 public:
  //! Makes an empty file in a folder, with a name of its own that begins with `prefix` and the permissions of
  //! a new file. Throws `std::system_error`.
  TemporaryFile(const std::string& folder, const std::string& prefix);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  const std::string& Name() const { return name_; }
  //! The file descriptor; stays open as long as the object lives.
  int Descriptor() const { return descriptor_; }
  //! Gives the file another name, replacing what has that name. Throws `std::system_error`.
  void RenameTo(const std::string& name);

 private:
  std::string name_;
  int descriptor_ = -1;
  // Where the handler of signals finds the name.
  int slot_ = -1;
};

}  // namespace kavo::command
