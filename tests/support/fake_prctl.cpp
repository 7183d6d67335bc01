// Notes the platform's trace marks in the journal as "mark TEXT"; everything else reaches the kernel.
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

#include "journal.h"

namespace {

constexpr int kTraceMark = 666;

} // namespace

extern "C" int prctl(int option, ...) {
  va_list list;
  va_start(list, option);
  unsigned long arguments[4];
  for (unsigned long &argument : arguments) {
    argument = va_arg(list, unsigned long);
  }
  va_end(list);
  if (option == kTraceMark) {
    const Uncounted uncounted;
    Note("mark ", std::string(reinterpret_cast<const char *>(arguments[0]), arguments[1]));
    return -1; // like a kernel that does not know the option
  }
  return static_cast<int>(syscall(SYS_prctl, option, arguments[0], arguments[1], arguments[2], arguments[3]));
}
