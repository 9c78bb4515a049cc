// Bytes on a connection to the control API, over the server, the parsing of bodies and every route: whatever comes, what
// is answered is one of our answers, and JSON where it says so.

#include "Agent/Control/ControlApiRigTest.h"
#include "Agent/Control/KnownSamplesRig.h"
#include "Fuzz/Input.h"
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

/// The API over the small model of its tests, behind a server.
class Connections final : ControlApiRig {
 public:
   Connections() {
      std::string name = ( std::filesystem::temp_directory_path() / "fuzz-XXXXXX" ).string();
      require( mkdtemp( name.data() ) != nullptr, "there is a folder" );
      folder_ = name;
      commands.samples = &samples_;
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
      over_ = how & 1 ? Over::web : Over::local;
      refusal = how & 2 ? ControlCommands::Result( { Api::ErrorCode::conflict, "it is not to be", "u1" } )
                        : std::nullopt;
      planned.blocked = how & 4;
      asked.clear();
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      ( folder_ + "/control.sock" ).copy( address.sun_path, sizeof address.sun_path - 1 );
      const int client = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
      require(
         connect( client, reinterpret_cast< sockaddr * >( &address ), sizeof address ) == 0,
         "can be reached" );
      // In two parts, so that what a part ends in is not always whole.
      const std::size_t first = how & 8 ? input.number16() : 65535;
      for ( const std::string_view part : { input.bytes( first ), input.rest() } ) {
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
      const bool asksLocally = request.local;
      api->handle( request, [this, asksLocally, request, answer = std::move( answer )]( HttpReply reply ) {
         check( request, reply, asksLocally );
         answer( std::move( reply ) );
      } );
   }
   void check( const HttpRequest & request, const HttpReply & reply, bool asksLocally ) {
      require( reply.status >= 200 && reply.status < 600, "a status of HTTP" );
      require(
         reply.status != 500, "none of our own mistakes",
         request.method + " " + request.path + "\n" + reply.body );
      require(
         asksLocally || asked.empty() || request.method == "GET" || request.method == "HEAD",
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   static Connections connections;
   connections.take( Fuzz::Input( data, size ) );
   return 0;
}
