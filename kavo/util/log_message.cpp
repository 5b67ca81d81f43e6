#include "kavo/util/log_message.h"

#include <locale>
#include <utility>

#include "kavo/util/log_internal.h"

namespace kavo::util {

TextStream::TextStream() { imbue(std::locale::classic()); }

TextStream::~TextStream() = default;

LogMessage::LogMessage(LogLevel level) { record_.level = level; }

LogMessage::LogMessage(std::string condition, std::string file, int line)
    : record_{LogLevel::kCritical, true, std::move(condition), std::move(file), line, {}} {}

void LogMessage::operator&(const std::ostream& text) {
  if (const auto* buffer = dynamic_cast<const std::stringbuf*>(text.rdbuf())) {
    record_.message = buffer->str();
  }
  internal::Emit(record_);
  if (record_.fatal) {
    throw FatalError(record_.condition, record_.file, record_.line, record_.message);
  }
}

}  // namespace kavo::util
