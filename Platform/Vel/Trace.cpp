#include "Platform/Vel/Trace.h"

#include <algorithm>
#include <map>

namespace Vel {

namespace {

struct TraceState {
   std::vector< TraceFacility * > facilities;
   std::map< String, int > wanted;
   TraceSink sink = nullptr;
   void * context = nullptr;
   TraceCapture * capture = nullptr;
};

TraceState & state() {
   static TraceState instance;
   return instance;
}

} // namespace

TraceFacility::TraceFacility( const char * name ) : name_( name ) {
   for ( const char * key : { "*", name } )
      if ( const auto it = state().wanted.find( key ); it != state().wanted.end() )
         level_ = it->second;
   state().facilities.push_back( this );
}

TraceFacility::~TraceFacility() { std::erase( state().facilities, this ); }

std::vector< TraceFacility * > TraceFacility::all() {
   auto result = state().facilities;
   std::stable_sort( result.begin(), result.end(), []( const auto * a, const auto * b ) {
      return std::string_view( a->name() ) < b->name();
   } );
   return result;
}

unsigned TraceFacility::levelIs( const String & name, int level ) {
   level = std::clamp( level, -1, 9 );
   if ( name == "*" )
      state().wanted.clear();
   state().wanted[name] = level;
   unsigned count = 0;
   for ( TraceFacility * facility : state().facilities )
      if ( name == "*" || name == facility->name() ) {
         facility->levelIs( level );
         ++count;
      }
   return count;
}

void traceSinkIs( TraceSink sink, void * context ) {
   state().sink = sink;
   state().context = context;
}

void traceEmit( const TraceFacility & facility, int level, std::string_view text ) {
   if ( TraceCapture * capture = state().capture )
      capture->lines_.push_back( { facility.name(), level, String( text ) } );
   else if ( state().sink )
      state().sink( state().context, facility, level, text );
}

TraceCapture::TraceCapture( int level ) : outer_( state().capture ) {
   for ( TraceFacility * facility : state().facilities ) {
      levels_.emplace_back( facility, facility->level() );
      facility->levelIs( level );
   }
   state().capture = this;
}

TraceCapture::~TraceCapture() {
   // A facility may have left with its plug-in meanwhile.
   for ( const auto & [facility, level] : levels_ )
      if ( std::count( state().facilities.begin(), state().facilities.end(), facility ) )
         facility->levelIs( level );
   state().capture = outer_;
}

unsigned TraceCapture::count( std::string_view text, int level ) const {
   return static_cast< unsigned >( std::count_if( lines_.begin(), lines_.end(), [&]( const Line & line ) {
      return line.text.find( text ) != String::npos && ( level < 0 || line.level == level );
   } ) );
}

} // namespace Vel
