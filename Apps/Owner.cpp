#include "Apps/Owner.h"

#include <cerrno>
#include <cstring>

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Apps {

namespace {

/// Of the rights that are left, the one to administer the network is kept and used, here and by commands. It may be that
/// there is none: a simulated switch needs none.
bool keepNetworkRight() {
   __user_cap_header_struct header{};
   header.version = _LINUX_CAPABILITY_VERSION_3;
   __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3]{};
   if ( syscall( SYS_capget, &header, rights ) != 0 )
      return false;
   const unsigned network = rights[0].permitted & ( 1u << CAP_NET_ADMIN );
   rights[0] = { network, network, network };
   rights[1] = {};
   if ( syscall( SYS_capset, &header, rights ) != 0 )
      return false;
   return !network || prctl( PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_ADMIN, 0, 0 ) == 0;
}

bool become( uid_t user, gid_t group ) {
   const passwd * const known = getpwuid( user );
   if ( ( known ? initgroups( known->pw_name, group ) : setgroups( 0, nullptr ) ) != 0 )
      return false;
   if ( prctl( PR_SET_KEEPCAPS, 1, 0, 0, 0 ) != 0 || setresgid( group, group, group ) != 0 )
      return false;
   // What is said of this process in /proc is its new user's to read.
   return setresuid( user, user, user ) == 0 && keepNetworkRight() &&
          prctl( PR_SET_DUMPABLE, 1, 0, 0, 0 ) == 0;
}

} // namespace

std::string becomeOwnerOf( const std::string & stateDir, const std::string & runtimeDir ) {
   struct stat folder {};
   if ( geteuid() != 0 || stat( stateDir.c_str(), &folder ) != 0 || folder.st_uid == 0 )
      return "";
   const auto failed = [&]( const std::string & what ) { return what + ": " + std::strerror( errno ); };
   if (
      mkdir( runtimeDir.c_str(), 0750 ) == 0 &&
      chown( runtimeDir.c_str(), folder.st_uid, folder.st_gid ) != 0 )
      return failed( runtimeDir + ": cannot be given to the owner of " + stateDir );
   if ( !become( folder.st_uid, folder.st_gid ) )
      return failed( "cannot go on as the owner of " + stateDir );
   return "";
}

} // namespace Apps
