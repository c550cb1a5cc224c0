#include "Rights.hpp"

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

#include "LastError.hpp"
#include "Report.hpp"

namespace quorbin {

void GiveUpRights() {
  // The C library declares no wrapper for this call, and one call does not justify a library.
  __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  // The ambient set goes with the permitted one.
  if (::syscall(SYS_capset, &header, none.data()) != 0) {
    Report("can't give up capabilities: " + LastError().message());
  }
  rlimit cores{};
  if (::getrlimit(RLIMIT_CORE, &cores) != 0) return;
  cores.rlim_cur = 0;
  ::setrlimit(RLIMIT_CORE, &cores);
}

}  // namespace quorbin
