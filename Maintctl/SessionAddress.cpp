#include "Maintctl/SessionAddress.h"

#include <arpa/inet.h>

namespace Maintctl {

std::string sessionAddress( const char * connection, const char * client ) {
   for ( const char * variable : { connection, client } ) {
      const std::string text = variable ? variable : "";
      // An address, perhaps of one link only, and more behind a blank.
      const std::string word = text.substr( 0, text.find( ' ' ) );
      const std::string address = word.substr( 0, word.find( '%' ) );
      unsigned char bytes[16];
      if (
         inet_pton( AF_INET, address.c_str(), bytes ) == 1 ||
         inet_pton( AF_INET6, address.c_str(), bytes ) == 1 )
         return word;
   }
   return "";
}

} // namespace Maintctl
