#include <sys/auxv.h>
#include <unistd.h>

int issetugid(void) {
  return getauxval(AT_SECURE) != 0 ? 1 : 0;
}
