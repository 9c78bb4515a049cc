#include "Agent/Commands/Processes.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace Agent {

namespace {

/// What the kernel says of one process.
struct Listed {
   pid_t pid = 0, group = 0, session = 0;
   char state = '?';
   Vel::U64 startTime = 0;

   bool hasEnded() const { return state == 'Z' || state == 'X'; }
};

/// Empty if it cannot be read.
std::string content( const std::string & path ) {
   std::ostringstream text;
   text << std::ifstream( path ).rdbuf();
   return text.str();
}

std::optional< Listed > listed( pid_t pid ) {
   const std::string text = content( "/proc/" + std::to_string( pid ) + "/stat" );
   // The name of the program may hold anything, also brackets and blanks.
   const std::size_t nameEnd = text.rfind( ')' );
   if ( nameEnd == text.npos )
      return std::nullopt;
   std::istringstream in( text.substr( nameEnd + 1 ) );
   Listed result;
   result.pid = pid;
   std::string other;
   in >> result.state >> other >> result.group >> result.session;
   constexpr int betweenSessionAndStartTime = 15;
   for ( int i = 0; i < betweenSessionAndStartTime; ++i )
      in >> other;
   in >> result.startTime;
   return in ? std::optional( result ) : std::nullopt;
}

std::vector< Listed > sessionOf( pid_t leader ) {
   std::vector< Listed > result;
   std::error_code error;
   for ( std::filesystem::directory_iterator at( "/proc", error ), end; !error && at != end;
         at.increment( error ) ) {
      const std::string name = at->path().filename();
      pid_t pid = 0;
      const auto [rest, bad] = std::from_chars( name.data(), name.data() + name.size(), pid );
      if ( bad != std::errc() || rest != name.data() + name.size() )
         continue;
      // Most are of others, and this is told without reading anything.
      if ( getsid( pid ) != leader )
         continue;
      if ( const auto process = listed( pid ); process && process->session == leader && !process->hasEnded() )
         result.push_back( *process );
   }
   return result;
}

bool hasMark( pid_t pid, const std::string & mark ) {
   const std::string environment = '\0' + content( "/proc/" + std::to_string( pid ) + "/environ" );
   return environment.find( '\0' + mark + '\0' ) != environment.npos;
}

Vel::String home() {
   std::string boot = content( "/proc/sys/kernel/random/boot_id" );
   boot.resize( std::min( boot.size(), boot.find( '\n' ) ) );
   std::error_code unknown;
   return boot + " " + std::filesystem::read_symlink( "/proc/self/ns/pid", unknown ).string();
}

} // namespace

ProcessId processOf( pid_t pid ) {
   const auto process = listed( pid );
   return process ? ProcessId{ static_cast< Vel::U32 >( pid ), process->startTime, home() } : ProcessId();
}

std::vector< pid_t > remnantsOf( const ProcessId & process, const std::string & mark ) {
   std::vector< pid_t > result;
   const auto leader = static_cast< pid_t >( process.pid );
   if ( leader == 0 || process.home != home() )
      return result;
   const auto now = listed( leader );
   const bool same = now && now->startTime == process.startTime;
   // A number is not given to anybody else while a session bears it; this one may have ended altogether.
   if ( now && !same )
      return result;
   for ( const Listed & member : sessionOf( leader ) )
      if ( same || hasMark( member.pid, mark ) )
         result.push_back( member.pid );
   return result;
}

std::vector< pid_t > othersOfSession( pid_t leader, bool outsideGroup ) {
   std::vector< pid_t > result;
   for ( const Listed & member : sessionOf( leader ) )
      if ( member.pid != leader && !( outsideGroup && member.group == leader ) )
         result.push_back( member.pid );
   return result;
}

bool isOfSession( pid_t pid, pid_t leader ) {
   const auto process = listed( pid );
   return process && process->session == leader && !process->hasEnded();
}

} // namespace Agent
