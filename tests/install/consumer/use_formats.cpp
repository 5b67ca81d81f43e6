#include <iostream>

#include "kavo/formats/file_error.h"

int main() {
  const kavo::formats::FileError error("arm.urdf", 3, "found nothing");
  std::cout << error.what() << "\n";
  return error.line() == 3 ? 0 : 1;
}
