#include "runtime/tmbclno_holder.h"

#include <unistd.h>

#include "runtime/TMBACLNO.h"
#include "runtime/TMBIPC.h"

tmbclno_holder::tmbclno_holder() {
  if (tmbclno_aogpd_overriden.exchange(true, std::memory_order_relaxed)) return;
  if (getuid() == 0) return;
  // Nor where the process has rights that its user has not.
  if (issetugid() != 0) return;
  if (TMBIPC_IsSoundAllowed() == 0) return;
  tmbclno_override_aogpd();
  tmbclno_override_aospd();
}
