// Writes each argument as one line at ny80211_cmd/log_err and ny80211_event/log_info.
#include "trace/Trace.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    Ny80211::trace::cmdErr("{}", argv[i]);
    Ny80211::trace::eventInfo("{}", argv[i]);
  }
}
