/* A program that speaks the daemon's protocol itself, with the one header that needs another library's. */
#include <stdio.h>
#include <tavren_rpc.h>

int main(void) {
  char bytes[4];
  XDR wire;
  tavren_state_t state = TAVREN_STATE_ENABLED;
  xdrmem_create(&wire, bytes, sizeof bytes, XDR_ENCODE);
  if (!xdr_tavren_state_t(&wire, &state)) {
    return 1;
  }
  return printf("program %d, state %d\n", TAVREN_RPC_PROG_DEFAULT, bytes[3]) < 0;
}
