#include "Maintctl/SessionAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>

namespace Maintctl {

namespace {

/// A stranger may have told us a circle, or no end.
constexpr int mostAncestors = 64;

/// Nothing: it may not be read.
std::optional< std::string > content( const std::string & path ) {
   std::ifstream file( path, std::ios::binary );
   if ( !file )
      return std::nullopt;
   std::ostringstream text;
   text << file.rdbuf();
   return text.str();
}

/// Nothing: it is not set.
std::optional< std::string > variable( const std::string & environment, const std::string & name ) {
   const std::string begin = name + "=";
   for ( std::size_t at = 0; at < environment.size(); ) {
      const std::size_t end = std::min( environment.find( '\0', at ), environment.size() );
      if ( environment.compare( at, begin.size(), begin ) == 0 )
         return environment.substr( at + begin.size(), end - at - begin.size() );
      at = end + 1;
   }
   return std::nullopt;
}

/// Perhaps of one link only.
bool isAddress( const std::string & text ) {
   const std::size_t percent = text.find( '%' );
   const std::string address = text.substr( 0, percent );
   unsigned char bytes[16];
   if ( percent == std::string::npos && inet_pton( AF_INET, address.c_str(), bytes ) == 1 )
      return true;
   return percent + 1 != text.size() && inet_pton( AF_INET6, address.c_str(), bytes ) == 1;
}

bool isSetIn( const std::string & environment, const char * one, const char * other ) {
   return variable( environment, one ) || variable( environment, other );
}

std::string addressIn( const std::string & environment ) {
   const auto connection = variable( environment, "SSH_CONNECTION" );
   const auto client = variable( environment, "SSH_CLIENT" );
   return sessionAddress( connection ? connection->c_str() : nullptr, client ? client->c_str() : nullptr );
}

/// 0: there is none, or nobody says. Behind the name, which may contain anything, stands the state, then the parent.
int parentOf( const std::string & stat ) {
   const std::size_t end = stat.rfind( ')' );
   if ( end == std::string::npos )
      return 0;
   std::istringstream rest( stat.substr( end + 1 ) );
   std::string state;
   int parent = 0;
   rest >> state >> parent;
   return parent;
}

std::string noteOf( const std::string & address, bool multiplexed, bool hidden ) {
   const std::string says =
      "; --session ADDRESS says it, so that a plan can tell whether you would cut yourself off";
   if ( multiplexed )
      return "nobody knows from where you look into a terminal multiplexer" +
             ( address.empty() ? ""
                               : ": " + address.substr( 0, address.find( ',' ) ) +
                                    " is from where its window was opened" ) +
             says;
   return address.empty() && hidden ? "from where you come cannot be seen behind sudo" + says : "";
}

} // namespace

bool isSessionAddress( const std::string & text ) {
   const std::size_t comma = text.find( ',' );
   return isAddress( text.substr( 0, comma ) ) &&
          ( comma == std::string::npos || isAddress( text.substr( comma + 1 ) ) );
}

std::string sessionAddress( const char * connection, const char * client ) {
   for ( const char * variable : { connection, client } ) {
      // In the first one, the far end and its port, the near end and its port; the second one says no near end.
      std::istringstream words( variable ? variable : "" );
      std::string far, port, near;
      words >> far >> port >> near;
      if ( isAddress( far ) )
         return variable == connection && isAddress( near ) ? far + "," + near : far;
   }
   return "";
}

OperatorSession operatorSession( const std::string & folder, int process ) {
   std::string address;
   bool multiplexed = false, other = false, unread = false;
   for ( int i = 0; i < mostAncestors && process > 0 && address.empty(); ++i ) {
      const std::string own = folder + "/" + std::to_string( process );
      const auto environment = content( own + "/environ" );
      unread = unread || !environment;
      if ( environment ) {
         address = addressIn( *environment );
         multiplexed = multiplexed || isSetIn( *environment, "TMUX", "STY" );
         other = other || isSetIn( *environment, "SUDO_USER", "DOAS_USER" );
      }
      process = parentOf( content( own + "/stat" ).value_or( "" ) );
   }
   return { address, noteOf( address, multiplexed, other && unread ) };
}

} // namespace Maintctl
