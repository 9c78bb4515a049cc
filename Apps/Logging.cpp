#include "Apps/Logging.h"

#include "Platform/Vel/Log.h"
#include "Platform/Vel/Text.h"
#include "Platform/Vel/Trace.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

namespace Apps {

namespace {

void logTo( const std::shared_ptr< spdlog::logger > & logger ) {
   spdlog::set_default_logger( logger );
   logger->flush_on( spdlog::level::trace );
   Vel::traceSinkIs(
      []( void *, const Vel::TraceFacility & facility, int level, std::string_view text ) {
         spdlog::info( "trace {}/{} {}", facility.name(), level, text );
      },
      nullptr );
   Vel::logSinkIs(
      []( void *, const Vel::LogHandle & handle, std::string_view text ) {
         spdlog::warn( "{}: {}", handle.name(), text );
      },
      nullptr );
}

/// Whether the standard error is the stream that the service manager has named for its journal; it may have been led
/// elsewhere since.
bool isJournal() {
   const char * const named = getenv( "JOURNAL_STREAM" );
   struct stat status {};
   return named && fstat( STDERR_FILENO, &status ) == 0 &&
          Vel::text( status.st_dev, ":", status.st_ino ) == named;
}

/// The number of a level as syslog counts them.
class Priority final : public spdlog::custom_flag_formatter {
 public:
   void
   format( const spdlog::details::log_msg & message, const std::tm &, spdlog::memory_buf_t & to ) override {
      switch ( message.level ) {
      case spdlog::level::critical:
         return to.push_back( '2' );
      case spdlog::level::err:
         return to.push_back( '3' );
      case spdlog::level::warn:
         return to.push_back( '4' );
      case spdlog::level::info:
         return to.push_back( '6' );
      default:
         return to.push_back( '7' );
      }
   }
   std::unique_ptr< custom_flag_formatter > clone() const override { return std::make_unique< Priority >(); }
};

} // namespace

void logToStandardError() {
   const auto logger = spdlog::stderr_logger_st( "maintd" );
   logTo( logger );
   if ( !isJournal() )
      return logger->set_pattern( "%Y-%m-%dT%H:%M:%S.%e %l %v" );
   auto formatter = std::make_unique< spdlog::pattern_formatter >();
   formatter->add_flag< Priority >( '*' ).set_pattern( "<%*>%v" );
   logger->set_formatter( std::move( formatter ) );
}

void logToSyslog() {
   constexpr char name[] = "syslog";
   if ( spdlog::get( name ) )
      return;
   const auto logger = spdlog::syslog_logger_st( name, "maintd", LOG_PID, LOG_DAEMON );
   logTo( logger );
   logger->set_pattern( "%v" );
}

const char * errorPrefix() { return isJournal() ? "<3>" : ""; }

} // namespace Apps
