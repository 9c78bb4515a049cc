// Bytes on a connection to the control API, over the server, the parsing of bodies and every route: whatever comes, what
// is answered is one of our answers, and JSON where it says so.

#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Control/KnownSamplesRig.h"
#include "Fuzz/Input.h"
#include "Fuzz/Mutation.h"
#include "Platform/Cog/TimeSource.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Vel/Trace.h"

#include <nlohmann/json.hpp>

#include <filesystem>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using namespace Agent;
using Fuzz::require;

/// How an input comes, in its first byte; the seeds are made with these numbers.
enum How : unsigned {
   overWeb = 1,
   toARefusal = 2,
   toABlockingPlan = 4,
   inParts = 8, ///< of which the first has so many bytes as the next two say
   lengthAsItIs = 16,
   withoutHead = 32, ///< the next byte is the number of a route
};

/// A wrong length keeps bodies that are changed at random from being looked at; so mostly that of the first request is made
/// right.
std::string withRightLength( std::string_view request ) {
   constexpr std::string_view key = "Content-Length: ", headEnds = "\r\n\r\n";
   const std::size_t end = request.find( headEnds ), length = request.find( key );
   std::string result( request );
   if ( end == request.npos || length > end )
      return result;
   const std::size_t number = length + key.size();
   return result.replace(
      number, request.find( "\r\n", number ) - number,
      std::to_string( request.size() - end - headEnds.size() ) );
}

/// What changes most is behind a head that need not change with it: one of these for a body, or for a query. Seeds number
/// them.
constexpr std::string_view routes[] = {
   "POST /api/v1/units/u1/enter",
   "POST /api/v1/units/u1/exit",
   "POST /api/v1/interfaces/et1/release",
   "POST /api/v1/trace",
   "POST /api/v1/simulated/traffic",
   "POST /api/v1/simulated/link",
   "POST /api/v1/simulated/advance",
   "GET /api/v1/interfaces?",
   "GET /api/v1/samples?",
   "GET /api/v1/history?",
   "GET /api/v1/operations?",
   "GET /api/v1/events?",
   "GET /api/v1/events/recent?",
   "GET /api/v1/units/u1/plan?",
   "GET /api/v1/" };

std::string behindAHead( Fuzz::Input input ) {
   const std::string_view route = routes[input.byte() % std::size( routes )];
   const std::string_view rest = input.rest();
   const bool body = route.starts_with( "POST" );
   std::string result( route );
   result.append( body ? "" : rest ).append( " HTTP/1.1\r\nHost: agent\r\n" );
   if ( body )
      result.append( "Content-Length: " ).append( std::to_string( rest.size() ) ).append( "\r\n" );
   return result.append( "\r\n" ).append( body ? rest : "" );
}

/// The API over the small model of its tests, behind a server.
class Connections final : ControlApiRig {
 public:
   Connections() {
      std::string name = ( std::filesystem::temp_directory_path() / "fuzz-XXXXXX" ).string();
      require( mkdtemp( name.data() ) != nullptr, "there is a folder" );
      folder_ = name;
      commands.samples = &samples_;
      rig.operations->operationIs( 7, "u1" )->withIs( "ticket=OPS-1\n" );
      api = std::make_unique< ControlApi >( rig.model(), commands );
      server_ = std::make_unique< HttpServer >(
         loop_, wheel_,
         [this]( const HttpRequest & request, HttpServer::Answer answer ) {
            handle( request, std::move( answer ) );
         },
         ControlApi::refusal );
      const auto problem = server_->listenLocal( folder_ + "/control.sock" );
      require( !problem, "listens" );
   }
   ~Connections() override {
      server_.reset();
      std::filesystem::remove_all( folder_ );
   }
   void TestBody() override {}

   /// What was said by an earlier connection is forgotten.
   void take( Fuzz::Input input ) {
      const unsigned how = input.byte();
      over_ = how & overWeb ? Over::web : Over::local;
      refusal = how & toARefusal
                   ? ControlCommands::Result( { Api::ErrorCode::conflict, "it is not to be", "u1" } )
                   : std::nullopt;
      planned.blocked = how & toABlockingPlan;
      asked.clear();
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      ( folder_ + "/control.sock" ).copy( address.sun_path, sizeof address.sun_path - 1 );
      const int client = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
      require(
         connect( client, reinterpret_cast< sockaddr * >( &address ), sizeof address ) == 0,
         "can be reached" );
      // In two parts, so that what a part ends in is not always whole.
      const std::size_t cut = how & inParts ? input.number16() : std::string_view::npos;
      const std::string request = how & withoutHead    ? behindAHead( input )
                                  : how & lengthAsItIs ? std::string( input.rest() )
                                                       : withRightLength( input.rest() );
      const std::string_view first = std::string_view( request ).substr( 0, cut );
      for ( const std::string_view part : { first, std::string_view( request ).substr( first.size() ) } ) {
         if ( part.empty() || send( client, part.data(), part.size(), MSG_NOSIGNAL ) < 0 )
            break;
         for ( unsigned turns = 0; turns < 3; ++turns ) {
            turn();
            read( client );
         }
      }
      close( client );
      turn();
      turn();
      Vel::TraceFacility::levelIs( "*", -1 );
   }

 private:
   enum class Over { local, web };

   void turn() {
      commit();
      for ( const auto & call : std::exchange( later, {} ) )
         call();
      loop_->post( [this] { loop_->stop(); } );
      loop_->run();
   }
   static void read( int client ) {
      char buffer[65536];
      while ( recv( client, buffer, sizeof buffer, MSG_DONTWAIT ) > 0 )
         ;
   }
   void handle( HttpRequest request, HttpServer::Answer answer ) {
      request.local = over_ == Over::local;
      // What reads asks the agent too, and may come before on the same connection.
      const std::size_t askedBefore = asked.size();
      api->handle( request, [this, askedBefore, request, answer = std::move( answer )]( HttpReply reply ) {
         check( request, reply, asked.size() > askedBefore );
         answer( std::move( reply ) );
      } );
   }
   void check( const HttpRequest & request, const HttpReply & reply, bool hasAsked ) {
      require( reply.status >= 200 && reply.status < 600, "a status of HTTP" );
      require(
         reply.status != 500, "none of our own mistakes",
         request.method + " " + request.path + "\n" + reply.body );
      require(
         request.local || !hasAsked || request.method == "GET" || request.method == "HEAD",
         "over the web nothing is changed", request.path );
      if ( reply.stream || reply.contentType != "application/json" )
         return;
      const auto body = nlohmann::json::parse( reply.body, nullptr, false );
      require( !body.is_discarded(), "JSON", reply.body );
      if ( reply.status >= 400 && reply.status != 503 )
         require(
            body.contains( "error" ) && body["error"].contains( "code" ) &&
               body["error"].contains( "message" ),
            "a refusal says what and why", reply.body );
   }

   std::string folder_;
   KnownSamples samples_;
   const Vel::Ptr< Cog::EventLoop > loop_ =
      Vel::make< Cog::EventLoop >( Vel::make< Cog::VirtualTime >( 1.7e9 ) );
   const Vel::Ptr< Cog::TimerWheel > wheel_ =
      Vel::make< Cog::TimerWheel >( loop_, 1000u, 1800u, true, 1024u );
   std::unique_ptr< HttpServer > server_;
   Over over_ = Over::local;
};

/// What of an input is changed while the rest stays: the body, or else what is asked for.
struct Region {
   std::size_t begin, size;
   Fuzz::TextForm form;
};
Region regionOf( std::string_view input ) {
   const unsigned how = input.empty() ? 0 : static_cast< std::uint8_t >( input[0] );
   const std::size_t begin = std::min< std::size_t >( how & inParts ? 3 : 1, input.size() );
   if ( how & withoutHead && begin < input.size() ) {
      const std::string_view route =
         routes[static_cast< std::uint8_t >( input[begin] ) % std::size( routes )];
      return { begin + 1, input.npos, route.starts_with( "POST" ) ? Fuzz::json : Fuzz::query };
   }
   const std::size_t head = input.find( "\r\n\r\n", begin );
   if ( head != input.npos && head + 4 < input.size() )
      return { head + 4, input.npos, Fuzz::json };
   return { begin, std::min( input.find( " HTTP/", begin ), input.size() ) - begin, Fuzz::query };
}

/// \param other  may give a part
void change( std::string & input, std::string_view other, std::size_t most, Fuzz::Dice & dice ) {
   if ( dice.oneIn( 8 ) )
      return Fuzz::changeAnything( input, most );
   const Region region = regionOf( input ), taken = regionOf( other );
   std::string text = input.substr( region.begin, region.size );
   if ( !other.empty() && dice.oneIn( 4 ) )
      Fuzz::takePart( text, other.substr( taken.begin, taken.size ), dice );
   else
      Fuzz::changeText( text, region.form, dice );
   input.replace( region.begin, region.size, text );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   static Connections connections;
   connections.take( Fuzz::Input( data, size ) );
   return 0;
}

extern "C" std::size_t
LLVMFuzzerCustomMutator( std::uint8_t * data, std::size_t size, std::size_t most, unsigned seed ) {
   Fuzz::Dice dice( seed );
   return Fuzz::changed(
      data, size, data, most, [&]( std::string & input ) { change( input, "", most, dice ); } );
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(
   const std::uint8_t * data, std::size_t size, const std::uint8_t * other, std::size_t otherSize,
   std::uint8_t * out, std::size_t most, unsigned seed ) {
   Fuzz::Dice dice( seed );
   return Fuzz::changed( data, size, out, most, [&]( std::string & input ) {
      change( input, Fuzz::Input( other, otherSize ).rest(), most, dice );
   } );
}
