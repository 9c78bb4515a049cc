#pragma once

#include "Platform/Vel/Text.h"

#include <vector>

/// Purpose: log messages for the operator. A handle is defined once, at load, and emitted where it happens.
namespace Vel {

/// The severities of the system log; 5 is a normal but significant condition.
enum class LogSeverity : U8 { emergency, alert, critical, error, warning, notice, informational, debug };

/// Standard text of the recommended action where the operator has nothing to do.
extern const char * const NoActionRequired;

/// Definition of one log message. A static object; it leaves with the plug-in that defines it.
class LogHandle {
 public:
   /// \param format           one "%s" for each argument of emit()
   /// \param minInterval      seconds between two messages that are to be written; 0: no limit
   /// \param share            of the messages that is to be written, 0 to 1
   /// \param flags            none is defined; 0
   /// These three are wishes to whoever writes the messages: emit() hands on every one.
   LogHandle(
      const char * name, LogSeverity severity, const char * format, const char * explanation,
      const char * recommendedAction, double minInterval, double share, int flags );
   ~LogHandle();
   LogHandle( const LogHandle & ) = delete;
   LogHandle & operator=( const LogHandle & ) = delete;

   const char * name() const { return name_; }
   LogSeverity severity() const { return severity_; }
   const char * format() const { return format_; }
   const char * explanation() const { return explanation_; }
   const char * recommendedAction() const { return recommendedAction_; }
   double minInterval() const { return minInterval_; }
   double share() const { return share_; }
   int flags() const { return flags_; }

   /// Writes one message; arguments take the places of the "%s" in order.
   template < class... Args >
   void emit( const Args &... args ) const {
      emitTexts( { text( args )... } );
   }

   /// All handles of the process in the order of definition.
   static const std::vector< const LogHandle * > & all();

 private:
   void emitTexts( const std::vector< String > & args ) const;

   const char * name_;
   LogSeverity severity_;
   const char * format_;
   const char * explanation_;
   const char * recommendedAction_;
   double minInterval_;
   double share_;
   int flags_;
};

/// Where log messages go. Default: nowhere.
using LogSink = void ( * )( void * context, const LogHandle & handle, std::string_view text );
void logSinkIs( LogSink sink, void * context );

/// While it lives, takes all log messages instead of the sink. The last one made wins.
class LogCapture {
 public:
   struct Line {
      String name;
      LogSeverity severity;
      String text;
   };
   LogCapture();
   ~LogCapture();
   LogCapture( const LogCapture & ) = delete;
   LogCapture & operator=( const LogCapture & ) = delete;
   const std::vector< Line > & lines() const { return lines_; }
   void clear() { lines_.clear(); }

 private:
   friend class LogHandle;
   std::vector< Line > lines_;
   LogCapture * outer_;
};

} // namespace Vel
