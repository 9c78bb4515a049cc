#include "DataPlane/Linux/LostState.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <sys/socket.h>

namespace DataPlane::Linux {

namespace {

constexpr const char * hexDigits = "0123456789abcdef";

Vel::String hex( const Vel::String & bytes ) {
   Vel::String result;
   for ( const char byte : bytes ) {
      result += hexDigits[static_cast< unsigned char >( byte ) >> 4];
      result += hexDigits[static_cast< unsigned char >( byte ) & 15];
   }
   return result;
}

Vel::String raw( char prefix, const std::vector< RawAttribute > & attributes ) {
   Vel::String result;
   for ( const RawAttribute & attribute : attributes )
      result +=
         Vel::text( " ", std::string_view( &prefix, 1 ), attribute.number, "=", hex( attribute.payload ) );
   return result;
}

Vel::String lifetime( Vel::U32 seconds ) {
   return seconds == LinkAddress::forever ? Vel::String( "forever" ) : Vel::text( seconds );
}

Vel::String lineOf( const LinkAddress & address ) {
   Vel::String line = Vel::text( "address ", address.address, "/", address.prefixLength );
   if ( address.peer )
      line += Vel::text( " peer=", *address.peer );
   line += Vel::text(
      " scope=", address.scope, " flags=", address.flags, " valid=", lifetime( address.valid ),
      " preferred=", lifetime( address.preferred ) );
   if ( address.metric )
      line += Vel::text( " metric=", *address.metric );
   return line + Vel::text( " protocol=", address.protocol, "\n" );
}

Vel::String lineOf( const Neighbour & neighbour ) {
   Vel::String line = Vel::text( "neighbour ", neighbour.address );
   if ( !neighbour.linkAddress.empty() )
      line += " lladdr=" + hex( neighbour.linkAddress );
   line += Vel::text( " state=", neighbour.state );
   if ( neighbour.flags != 0 )
      line += Vel::text( " flags=", neighbour.flags );
   if ( neighbour.moreFlags != 0 )
      line += Vel::text( " moreflags=", neighbour.moreFlags );
   return line + Vel::text( " protocol=", neighbour.protocol, "\n" );
}

Vel::String linesOf( const LostOfDevice & lost ) {
   Vel::String lines;
   for ( const LinkAddress & address : lost.addresses )
      lines += lineOf( address );
   for ( const Neighbour & neighbour : lost.neighbours )
      lines += lineOf( neighbour );
   return lines;
}

Vel::String lineOf( const Follower & follower ) {
   return Vel::text(
      "follower ", follower.name, " index=", follower.ifIndex, follower.wasDown ? " down\n" : "\n" );
}

Vel::String lineOf( const Leg & leg ) {
   Vel::String line = " leg=" + leg.device;
   if ( leg.gateway )
      line += Vel::text( " via=", *leg.gateway );
   if ( leg.weight != 0 )
      line += Vel::text( " weight=", leg.weight );
   if ( leg.flags != 0 )
      line += Vel::text( " legflags=", leg.flags );
   return line + raw( 'l', leg.others );
}

Vel::String lineOf( const Route & route ) {
   Vel::String line = Vel::text(
      "route ", route.family == AF_INET ? "inet " : "inet6 ", route.destination, "/",
      route.destinationLength );
   if ( route.sourceLength != 0 )
      line += Vel::text( " from=", route.source, "/", route.sourceLength );
   line += Vel::text(
      " table=", route.table, " protocol=", route.protocol, " scope=", route.scope, " type=", route.type );
   if ( route.tos != 0 )
      line += Vel::text( " tos=", route.tos );
   if ( route.priority != 0 )
      line += Vel::text( " priority=", route.priority );
   if ( route.expires )
      line += Vel::text( " expires=", *route.expires );
   line += raw( 'a', route.others );
   for ( const Leg & leg : route.legs )
      line += lineOf( leg );
   return line + "\n";
}

/// Reads one line, word by word. The first thing that is wrong stays.
class LineReader {
 public:
   explicit LineReader( std::string_view line ) : left_( line ) {}
   Vel::String error;

   bool more() const { return !left_.empty(); }
   std::string_view word() {
      const std::size_t end = std::min( left_.find( ' ' ), left_.size() );
      const std::string_view result = left_.substr( 0, end );
      left_.remove_prefix( std::min( end + 1, left_.size() ) );
      return result;
   }
   void refuse( std::string_view what ) {
      if ( error.empty() )
         error = Vel::text( "cannot read \"", what, "\"" );
   }

   template < class T >
   T number( std::string_view text ) {
      T value{};
      const auto [end, code] = std::from_chars( text.data(), text.data() + text.size(), value );
      if ( code != std::errc() || end != text.data() + text.size() )
         refuse( text );
      return value;
   }
   Vel::U32 lifetime( std::string_view text ) {
      return text == "forever" ? LinkAddress::forever : number< Vel::U32 >( text );
   }
   IpAddress address( std::string_view text ) {
      const std::optional< IpAddress > result = addressFromText( Vel::String( text ) );
      if ( !result )
         refuse( text );
      return result.value_or( IpAddress() );
   }
   void prefix( std::string_view text, IpAddress & to, Vel::U8 & length ) {
      const std::size_t slash = std::min( text.find( '/' ), text.size() );
      to = address( text.substr( 0, slash ) );
      length = number< Vel::U8 >( text.substr( std::min( slash + 1, text.size() ) ) );
      if ( length > maxPrefix( to.family ) )
         refuse( text );
   }
   Vel::String bytes( std::string_view value ) {
      Vel::String result;
      // Longer ones do not fit into an attribute.
      if ( value.size() % 2 != 0 || value.size() > 8192 )
         refuse( value );
      for ( std::size_t i = 0; i + 1 < value.size() && error.empty(); i += 2 ) {
         Vel::U8 byte = 0;
         const auto [end, code] = std::from_chars( value.data() + i, value.data() + i + 2, byte, 16 );
         if ( code != std::errc() || end != value.data() + i + 2 )
            refuse( value );
         result += static_cast< char >( byte );
      }
      return result;
   }
   RawAttribute raw( std::string_view key, std::string_view value ) {
      RawAttribute result{ number< Vel::U16 >( key.substr( 1 ) ), {} };
      if ( result.number == 0 )
         refuse( value );
      result.payload = bytes( value );
      return result;
   }

 private:
   std::string_view left_;
};

struct KeyAndValue {
   std::string_view key, value;
};
KeyAndValue split( std::string_view word ) {
   const std::size_t at = std::min( word.find( '=' ), word.size() );
   return { word.substr( 0, at ), word.substr( std::min( at + 1, word.size() ) ) };
}

LinkAddress readAddress( LineReader & line ) {
   LinkAddress result;
   line.prefix( line.word(), result.address, result.prefixLength );
   while ( line.more() ) {
      const std::string_view word = line.word();
      const auto [key, value] = split( word );
      if ( key == "peer" )
         result.peer = line.address( value );
      else if ( key == "scope" )
         result.scope = line.number< Vel::U8 >( value );
      else if ( key == "flags" )
         result.flags = line.number< Vel::U32 >( value );
      else if ( key == "valid" )
         result.valid = line.lifetime( value );
      else if ( key == "preferred" )
         result.preferred = line.lifetime( value );
      else if ( key == "metric" )
         result.metric = line.number< Vel::U32 >( value );
      else if ( key == "protocol" )
         result.protocol = line.number< Vel::U8 >( value );
      else
         line.refuse( word );
   }
   return result;
}

Neighbour readNeighbour( LineReader & line ) {
   Neighbour result;
   result.address = line.address( line.word() );
   while ( line.more() ) {
      const std::string_view word = line.word();
      const auto [key, value] = split( word );
      if ( key == "lladdr" )
         result.linkAddress = line.bytes( value );
      else if ( key == "state" )
         result.state = line.number< Vel::U16 >( value );
      else if ( key == "flags" )
         result.flags = line.number< Vel::U8 >( value );
      else if ( key == "moreflags" )
         result.moreFlags = line.number< Vel::U32 >( value );
      else if ( key == "protocol" )
         result.protocol = line.number< Vel::U8 >( value );
      else
         line.refuse( word );
   }
   return result;
}

Follower readFollower( LineReader & line ) {
   Follower result;
   result.name = Vel::String( line.word() );
   while ( line.more() ) {
      const std::string_view word = line.word();
      const auto [key, value] = split( word );
      if ( key == "index" )
         result.ifIndex = line.number< Vel::U32 >( value );
      else if ( word == "down" )
         result.wasDown = true;
      else
         line.refuse( word );
   }
   if ( result.name.empty() || result.ifIndex == 0 )
      line.refuse( "follower without a name or a number" );
   return result;
}

/// False if the key is none of a leg.
bool readOfLeg( LineReader & line, const KeyAndValue & word, Leg & leg ) {
   if ( word.key == "via" )
      leg.gateway = line.address( word.value );
   else if ( word.key == "weight" )
      leg.weight = line.number< Vel::U8 >( word.value );
   else if ( word.key == "legflags" )
      leg.flags = line.number< Vel::U8 >( word.value );
   else if ( word.key.size() > 1 && word.key.front() == 'l' )
      leg.others.push_back( line.raw( word.key, word.value ) );
   else
      return false;
   return true;
}

/// False if the key is none of a route as a whole.
bool readOfRoute( LineReader & line, const KeyAndValue & word, Route & route ) {
   if ( word.key == "from" )
      line.prefix( word.value, route.source, route.sourceLength );
   else if ( word.key == "table" )
      route.table = line.number< Vel::U32 >( word.value );
   else if ( word.key == "protocol" )
      route.protocol = line.number< Vel::U8 >( word.value );
   else if ( word.key == "scope" )
      route.scope = line.number< Vel::U8 >( word.value );
   else if ( word.key == "type" )
      route.type = line.number< Vel::U8 >( word.value );
   else if ( word.key == "tos" )
      route.tos = line.number< Vel::U8 >( word.value );
   else if ( word.key == "priority" )
      route.priority = line.number< Vel::U32 >( word.value );
   else if ( word.key == "expires" )
      route.expires = line.number< Vel::U32 >( word.value );
   else if ( word.key.size() > 1 && word.key.front() == 'a' )
      route.others.push_back( line.raw( word.key, word.value ) );
   else
      return false;
   return true;
}

Route readRoute( LineReader & line ) {
   Route route;
   const std::string_view family = line.word();
   if ( family != "inet" && family != "inet6" )
      line.refuse( family );
   route.family = family == "inet" ? AF_INET : AF_INET6;
   route.source = anyAddress( route.family );
   line.prefix( line.word(), route.destination, route.destinationLength );
   while ( line.more() ) {
      const std::string_view word = line.word();
      const KeyAndValue keyAndValue = split( word );
      if ( keyAndValue.key == "leg" )
         route.legs.emplace_back().device = keyAndValue.value;
      else if ( !( route.legs.empty() ? readOfRoute( line, keyAndValue, route )
                                      : readOfLeg( line, keyAndValue, route.legs.back() ) ) )
         line.refuse( word );
   }
   if ( route.legs.empty() )
      line.refuse( "route without a leg" );
   if ( route.destination.family != route.family || route.source.family != route.family )
      line.refuse( family );
   return route;
}

} // namespace

namespace {

bool isMortal( const LostOfDevice & lost ) {
   return std::any_of( lost.addresses.begin(), lost.addresses.end(), []( const LinkAddress & a ) {
      return a.valid != LinkAddress::forever || ( a.preferred != LinkAddress::forever && a.preferred != 0 );
   } );
}

bool isMortal( const LostState & state ) {
   return isMortal( state.own ) ||
          std::any_of(
             state.followers.begin(), state.followers.end(),
             []( const Follower & follower ) { return isMortal( follower.lost ); } ) ||
          std::any_of( state.routes.begin(), state.routes.end(), []( const Route & r ) {
             return r.expires.has_value();
          } );
}

std::set< Vel::String > devicesOf( const std::vector< Route > & routes ) {
   std::set< Vel::String > devices;
   for ( const Route & route : routes )
      for ( const Leg & leg : route.legs )
         devices.insert( leg.device );
   return devices;
}

} // namespace

Vel::String textOf( const LostState & state ) {
   Vel::String text = isMortal( state ) ? Vel::text( "at ", state.at, "\n" ) : Vel::String();
   text += linesOf( state.own );
   const std::set< Vel::String > routed = devicesOf( state.routes );
   for ( const Follower & follower : state.followers )
      if ( follower.wasDown || !follower.lost.empty() || routed.count( follower.name ) )
         text += lineOf( follower ) + linesOf( follower.lost );
   for ( const Route & route : state.routes )
      text += lineOf( route );
   return text;
}

LostStateRead lostStateFrom( const Vel::String & text ) {
   LostStateRead result;
   std::string_view left = text;
   for ( unsigned number = 1; !left.empty(); ++number ) {
      const std::size_t end = std::min( left.find( '\n' ), left.size() );
      LineReader line( left.substr( 0, end ) );
      left.remove_prefix( std::min( end + 1, left.size() ) );
      const std::string_view what = line.word();
      LostState & state = result.state;
      LostOfDevice & lost = state.followers.empty() ? state.own : state.followers.back().lost;
      if ( what == "address" )
         lost.addresses.push_back( readAddress( line ) );
      else if ( what == "neighbour" )
         lost.neighbours.push_back( readNeighbour( line ) );
      else if ( what == "follower" )
         state.followers.push_back( readFollower( line ) );
      else if ( what == "route" )
         state.routes.push_back( readRoute( line ) );
      else if ( what == "at" )
         state.at = line.number< double >( line.word() );
      else
         line.refuse( what );
      if ( !line.error.empty() )
         return { Outcome::failed( Vel::text( "line ", number, " of the saved state: ", line.error ) ), {} };
   }
   return result;
}

LostState restoredAt( LostState state, double now ) {
   const double gone = std::max( 0.0, now - state.at );
   const auto shorten = [&]( Vel::U32 & seconds ) {
      if ( seconds == LinkAddress::forever )
         return true;
      seconds = seconds > gone ? seconds - static_cast< Vel::U32 >( gone ) : 0;
      return seconds > 0;
   };
   const auto restore = [&]( LostOfDevice & lost ) {
      std::erase_if( lost.addresses, [&]( LinkAddress & address ) {
         shorten( address.preferred );
         return !shorten( address.valid );
      } );
   };
   restore( state.own );
   for ( Follower & follower : state.followers )
      restore( follower.lost );
   std::erase_if(
      state.routes, [&]( Route & route ) { return route.expires && !shorten( *route.expires ); } );
   state.at = std::max( state.at, now );
   return state;
}

namespace {

template < class Thing >
void join( std::vector< Thing > & to, const std::vector< Thing > & from ) {
   for ( const Thing & thing : from )
      if ( std::find( to.begin(), to.end(), thing ) == to.end() )
         to.push_back( thing );
}

void join( LostOfDevice & to, const LostOfDevice & from ) {
   join( to.addresses, from.addresses );
   join( to.neighbours, from.neighbours );
}

} // namespace

LostState joined( LostState earlier, const LostState & later ) {
   join( earlier.own, later.own );
   // One that is up and loses nothing is in no text.
   for ( Follower & follower : earlier.followers )
      follower.wasDown = false;
   for ( const Follower & follower : later.followers ) {
      const auto at =
         std::find_if( earlier.followers.begin(), earlier.followers.end(), [&]( const Follower & other ) {
            return other.ifIndex == follower.ifIndex;
         } );
      if ( at == earlier.followers.end() ) {
         earlier.followers.push_back( follower );
         continue;
      }
      at->wasDown = follower.wasDown;
      join( at->lost, follower.lost );
   }
   join( earlier.routes, later.routes );
   return earlier;
}

} // namespace DataPlane::Linux
