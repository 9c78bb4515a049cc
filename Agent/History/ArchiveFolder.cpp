#include "Agent/History/Archive.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

/// What the archive finds in its folder when it begins.
namespace Agent {

namespace {

/// A larger one would leave none for those to come.
constexpr Vel::U32 mostId = 2'000'000'000;

/// The id that a file in the folder is named after; 0: it is none of ours.
Vel::U32 idOf( const std::string & name, std::string_view ending ) {
   Vel::U32 id = 0;
   const char * const end = name.data() + name.size();
   const auto [stop, error] = std::from_chars( name.data(), end, id );
   const bool ours = error == std::errc() && std::string_view( stop, end ) == ending && id <= mostId;
   return ours ? id : 0;
}

} // namespace

void Archive::lookAtFolder() {
   std::error_code error;
   std::filesystem::create_directory( folder_, error );
   std::vector< std::filesystem::path > leftOver;
   Vel::U32 last = historyDir_->lastId();
   for ( std::filesystem::directory_iterator it( folder_, error ), end; !error && it != end;
         it.increment( error ) ) {
      const std::string name = it->path().filename();
      const Vel::U32 id = idOf( name, fileEnding );
      last = std::max( last, id );
      if ( name.ends_with( WholeFile::unfinishedEnding ) )
         leftOver.push_back( it->path() );
      else if ( id > 0 && !historyDir_->summary( id ) )
         unknown_.push_back( id );
   }
   for ( const auto & path : leftOver )
      std::filesystem::remove( path, error );
   std::sort( unknown_.begin(), unknown_.end() );
   historyDir_->lastIdIs( last );
}

/// Whether the commit that has forgotten the summary of a file was the last thing that happened to it.
bool Archive::isLeftOver( Vel::U32 id ) const {
   return historyDir_->summarys() >= HistoryDir::mostFinished && id < *historyDir_->summaryFirst();
}

bool Archive::takeIn() {
   if ( unknown_.empty() )
      return false;
   for ( Vel::U32 i = 0; i < takenInAtOnce && !unknown_.empty(); ++i ) {
      takeIn( unknown_.back() );
      unknown_.pop_back();
   }
   return true;
}

void Archive::takeIn( Vel::U32 id ) {
   std::error_code ignored;
   if ( const HistoryRecord * const record = historyDir_->record( id ) ) {
      // One that is closed was being filed, and is filed again to the same name.
      if ( record->ended() == 0 )
         std::filesystem::rename( path( id ), path( id ) + othersEnding, ignored );
      return;
   }
   if ( isLeftOver( id ) ) {
      std::filesystem::remove( path( id ), ignored );
      return;
   }
   auto file = FilePieces::open( path( id ) );
   Vel::Ptr< HistorySummary > summary;
   std::string head;
   while ( file && !summary && head.size() < mostHead ) {
      const auto piece = file->next();
      if ( !piece || piece->empty() )
         break;
      head += *piece;
      summary = summaryOf( head );
   }
   if ( !summary || summary->id() != id )
      return;
   historyDir_->summaryPut( id, summary );
   forgetOld();
}

} // namespace Agent
