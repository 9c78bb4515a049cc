#pragma once

#include "Platform/Vel/Text.h"

#include <vector>

/// Purpose: traces. Each belongs to a facility (a name, one for each state machine) and a level; it is
/// formatted only when that level is on. Levels: 0 always worth seeing, 1 fatal inconsistencies, 4 decisions
/// and lifecycle, 5 handler entry, 9 detail of every sample. Switched at run time by name.
namespace Vel {

/// One switchable source of traces. A static object; one that a plug-in defines leaves with the plug-in.
class TraceFacility {
 public:
   explicit TraceFacility( const char * name );
   ~TraceFacility();
   TraceFacility( const TraceFacility & ) = delete;
   TraceFacility & operator=( const TraceFacility & ) = delete;

   const char * name() const { return name_; }
   /// The highest level that is on; -1: none.
   int level() const { return level_; }
   void levelIs( int level ) { level_ = level; }
   bool on( int level ) const { return level <= level_; }

   /// All facilities of the process, by name.
   static std::vector< TraceFacility * > all();
   /// Sets the level of the facilities with this name ("*": all, also those still to come); returns how many
   /// there are now. Remembered for facilities of that name that come later. Levels -1 to 9.
   static unsigned levelIs( const String & name, int level );

 private:
   const char * name_;
   int level_ = -1;
};

/// Where traces go. Default: nowhere.
using TraceSink =
   void ( * )( void * context, const TraceFacility & facility, int level, std::string_view text );
void traceSinkIs( TraceSink sink, void * context );

void traceEmit( const TraceFacility & facility, int level, std::string_view text );

/// Formats and emits; out of line, so that a trace that is off costs one compare.
template < class... Pieces >
[[gnu::noinline, gnu::cold]] void
traceFormatted( const TraceFacility & facility, int level, const Pieces &... pieces ) {
   traceEmit( facility, level, text( pieces... ) );
}

/// While it lives, takes all traces of all facilities up to a level instead of the sink. The last one made
/// wins.
class TraceCapture {
 public:
   struct Line {
      String facility;
      int level;
      String text;
   };
   explicit TraceCapture( int level = 9 );
   ~TraceCapture();
   TraceCapture( const TraceCapture & ) = delete;
   TraceCapture & operator=( const TraceCapture & ) = delete;

   const std::vector< Line > & lines() const { return lines_; }
   void clear() { lines_.clear(); }
   /// Lines that contain the text; with a level, only those of that level.
   unsigned count( std::string_view text, int level = -1 ) const;
   bool has( std::string_view text, int level = -1 ) const { return count( text, level ) != 0; }

 private:
   friend void traceEmit( const TraceFacility & facility, int level, std::string_view text );
   std::vector< Line > lines_;
   std::vector< std::pair< TraceFacility *, int > > levels_;
   TraceCapture * outer_;
};

} // namespace Vel

/// VEL_TRACE( facility, level, pieces... )
#define VEL_TRACE( facility, level, ... )                                                                    \
   do {                                                                                                      \
      if ( ( facility ).on( level ) ) [[unlikely]]                                                           \
         ::Vel::traceFormatted( facility, level, __VA_ARGS__ );                                              \
   } while ( false )
