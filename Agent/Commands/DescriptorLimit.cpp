#include "Agent/Commands/DescriptorLimit.h"

#include <sys/resource.h>

#include <algorithm>

namespace Agent {

namespace {

constexpr rlim_t enough = 65536;

rlimit before{};
bool raised = false;

} // namespace

void descriptorLimitRaise() {
   rlimit limit{};
   if ( raised || getrlimit( RLIMIT_NOFILE, &limit ) != 0 )
      return;
   before = limit;
   limit.rlim_cur = std::max( limit.rlim_cur, std::min( limit.rlim_max, enough ) );
   raised = setrlimit( RLIMIT_NOFILE, &limit ) == 0;
}

void descriptorLimitRestore() {
   if ( raised )
      setrlimit( RLIMIT_NOFILE, &before );
}

} // namespace Agent
