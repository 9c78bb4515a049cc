#include "Platform/Vel/Log.h"

#include <algorithm>

namespace Vel {

const char * const NoActionRequired = "No action is required.";

namespace {
struct LogState {
   std::vector< const LogHandle * > handles;
   LogSink sink = nullptr;
   void * context = nullptr;
   LogCapture * capture = nullptr;
};

LogState & state() {
   static LogState instance;
   return instance;
}
} // namespace

LogHandle::LogHandle(
   const char * name, LogSeverity severity, const char * format, const char * explanation,
   const char * recommendedAction, double minInterval, double share, int flags )
   : name_( name ),
     severity_( severity ),
     format_( format ),
     explanation_( explanation ),
     recommendedAction_( recommendedAction ),
     minInterval_( minInterval ),
     share_( share ),
     flags_( flags ) {
   state().handles.push_back( this );
}

LogHandle::~LogHandle() { std::erase( state().handles, this ); }

const std::vector< const LogHandle * > & LogHandle::all() { return state().handles; }

void LogHandle::emitTexts( const std::vector< String > & args ) const {
   String out;
   auto arg = args.begin();
   for ( const char * c = format_; *c; ++c ) {
      if ( c[0] == '%' && c[1] == 's' && arg != args.end() ) {
         out += *arg++;
         ++c;
      } else
         out += *c;
   }
   if ( LogCapture * capture = state().capture )
      capture->lines_.push_back( { name_, severity_, out } );
   else if ( state().sink )
      state().sink( state().context, *this, out );
}

void logSinkIs( LogSink sink, void * context ) {
   state().sink = sink;
   state().context = context;
}

LogCapture::LogCapture() : outer_( state().capture ) { state().capture = this; }
LogCapture::~LogCapture() { state().capture = outer_; }

} // namespace Vel
