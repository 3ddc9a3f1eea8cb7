#include "tools/DemoScript.h"

namespace PimrpTool {

const char* demoScript() {
  return R"(# pimrp demo: which RP serves each multicast group, and why.

# Static RPs: 10.0.0.1 serves the whole IPv4 group space; 10.0.0.2 and 10.0.0.3 share
# 239.0.0.0/8 at the same priority, so the hash spreads its groups between them. Options left
# out take their defaults: priority 0 (the best), hash mask length 30 (126 for IPv6).
rp-address 10.0.0.1 group 224.0.0.0/4 priority 200
rp-address 10.0.0.2 group 239.0.0.0/8 priority 10
rp-address 10.0.0.3 group 239.0.0.0/8 priority 10

# An access list names groups by rules, the first match deciding; RP 10.0.0.4 serves the
# groups it permits, and overrides what the bootstrap router learns for them.
acl MEDIA seq 10 deny 233.3.0.0/16
acl MEDIA seq 20 permit 233.0.0.0/14
rp-address 10.0.0.4 acl MEDIA priority 20 override

# A bidirectional RP, and an IPv6 one.
rp-address 10.0.0.5 group 238.0.0.0/8
rp-address 10.0.0.5 mode bidir
rp-address 2001:db8::1 group ff0e::/16

# Candidates learnt by the bootstrap router beat static ones, unless those override.
bsr-rp 239.0.0.0/8 10.1.0.1 priority 50 hashmask 30 mode sparse
bsr-rp 233.0.0.0/8 10.1.0.2 priority 50 hashmask 30 mode sparse

show acl MEDIA
show candidates static
show candidates bsr
show rp 239.1.1.1
show rp 233.1.1.1
show rp 238.1.1.1 mode bidir
show rp ff0e::1:1

# Without the bootstrap candidate, the hash picks among the static ones; the modulo rule
# picks candidate (group mod count) instead.
no bsr-rp 239.0.0.0/8 10.1.0.1
show rp 239.1.1.2
rp-hash-algorithm modulo
show rp 239.1.1.2
)";
}

}  // namespace PimrpTool
