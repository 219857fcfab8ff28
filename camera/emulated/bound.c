/* bound.c - bound COMMAND [ARGUMENT...]: runs COMMAND as a root whom file
 * permissions bind, as in the private camera; all that is left to it is to mount,
 * to make devices and to change the chip in them. */
#include <linux/capability.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char** argv) {
  for (unsigned long capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
    if (capability == CAP_SYS_ADMIN || capability == CAP_MKNOD || capability == CAP_SYS_MODULE)
      continue;
    (void)prctl(PR_CAPBSET_DROP, capability);
  }
  if (argc > 1) execvp(argv[1], argv + 1);
  perror("bound");
  return 125;
}
