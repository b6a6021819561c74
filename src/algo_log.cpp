#include "algo_log.h"

#include <clocale>
#include <cstdio>

namespace {

/// Puts this thread into the C locale for a moment.
class CLocaleScope {
 public:
  CLocaleScope() : before_(uselocale(cLocale())) {}
  ~CLocaleScope() { uselocale(before_); }
  CLocaleScope(const CLocaleScope&) = delete;
  CLocaleScope& operator=(const CLocaleScope&) = delete;

 private:
  static locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
  }
  locale_t before_;
};

}  // namespace

std::string formatInCLocale(const char* format, std::va_list arguments) {
  const CLocaleScope cLocale;
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

void writeLogLine(const std::string& pluginName, const std::string& message) {
  const std::string line = "[AlgoPlugin INFO] [" + pluginName + "] " + message + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}
