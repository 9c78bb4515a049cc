#include "Agent/History/Archive.h"

#include "Api/Error.h"

#include <filesystem>
#include <map>

namespace Agent {

Archive::Archive(
   Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, std::string folder,
   Vel::Ptr< HistoryDir > historyDir, Vel::Ptr< const HistoryPeaksDir > peaksDir, Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     folder_( std::move( folder ) ),
     historyDir_( std::move( historyDir ) ),
     peaksDir_( std::move( peaksDir ) ),
     hooks_( std::move( hooks ) ),
     self_( std::make_shared< Archive * >( this ) ) {
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
   lookAtFolder();
   look();
}

Archive::~Archive() { *self_ = nullptr; }

double Archive::wallOffset( const HistoryRecord & record ) const {
   return record.ended() > 0 ? record.wallOffset() : hooks_.wallTime( now() ) - now();
}

RecordText Archive::textOf( const HistoryRecord & record ) const {
   return RecordText( &record, { wallOffset( record ), now(), peaksDir_, hooks_.curveOf } );
}

// ---- filing

void Archive::look() {
   if ( runPosted_ )
      return;
   runPosted_ = true;
   scheduler_->post( [self = self_] {
      if ( Archive * archive = *self ) {
         archive->runPosted_ = false;
         archive->run();
      }
   } );
}

void Archive::run() {
   const bool more = work();
   if ( more )
      look();
   else if ( trouble_ )
      wakeup_->timeMinIs( now() + againAfter );
}

bool Archive::work() { return takeIn() || takeDown() || file(); }

bool Archive::takeDown() {
   for ( const auto & [id, record] : historyDir_->recordRange() ) {
      if ( !historyDir_->summary( id ) )
         continue;
      for ( Vel::U32 i = 0; i < takenDownAtOnce && record->intfs() > 0; ++i )
         record->intfDel( Wire::IntfId( *record->intfFirst() ) );
      if ( record->intfs() == 0 )
         historyDir_->recordDel( Vel::U32( id ) );
      return true;
   }
   return false;
}

bool Archive::file() {
   Vel::U32 waiting = 0;
   const HistoryRecord * oldest = nullptr;
   for ( const auto & [id, record] : historyDir_->recordRange() )
      if ( isWaiting( *record ) ) {
         ++waiting;
         oldest = oldest ? oldest : record.get();
      }
   if ( !oldest ) {
      trouble_.reset();
      return false;
   }
   if ( !filing_ )
      filing_.emplace( textOf( *oldest ), path( oldest->id() ) );
   const HistoryRecord & record = filing_->text.record();
   std::string problem = filing_->opened ? "" : filing_->file.open();
   filing_->opened = true;
   std::string pieces, piece;
   for ( Vel::U32 i = 0; problem.empty() && i < filedAtOnce; ++i )
      pieces += piece = filing_->text.next();
   if ( problem.empty() )
      problem = filing_->file.append( pieces );
   if ( problem.empty() && !piece.empty() )
      return true;
   if ( problem.empty() )
      problem = filing_->file.finish();
   if ( problem.empty() )
      becomesSummary( record );
   filing_.reset();
   if ( problem.empty() )
      return true;
   trouble_ = Trouble{ trouble_ ? trouble_->since : now(), problem };
   if ( waiting <= mostWaiting )
      return false;
   becomesSummary( *oldest );
   return true;
}

void Archive::becomesSummary( const HistoryRecord & record ) {
   summarize( record, record.wallOffset(), *historyDir_->summaryIs( record.id(), record.unitName() ) );
   forgetOld();
}

void Archive::forgetOld() {
   while ( historyDir_->summarys() > HistoryDir::mostFinished ) {
      const Vel::U32 oldest = *historyDir_->summaryFirst();
      historyDir_->summaryDel( oldest );
      toRemove_.push_back( path( oldest ) );
   }
   if ( toRemove_.empty() )
      return;
   hooks_.whenStored( [paths = std::exchange( toRemove_, {} )] {
      std::error_code ignored;
      for ( const std::string & path : paths )
         std::filesystem::remove( path, ignored );
   } );
}

// ---- what there is to see

bool Archive::hasUnit( const std::string & unit ) const {
   for ( const auto & [id, summary] : historyDir_->summaryRange() )
      if ( summary->unitName() == unit )
         return true;
   for ( const auto & [id, record] : historyDir_->recordRange() )
      if ( record->unitName() == unit )
         return true;
   return false;
}

std::string Archive::list( const std::string & unit, std::size_t limit ) const {
   std::map< Vel::U32, Vel::Ptr< const HistorySummary >, std::greater<> > newestFirst;
   for ( const auto & [id, summary] : historyDir_->summaryRange() )
      if ( unit.empty() || summary->unitName() == unit )
         newestFirst.emplace( id, summary );
   for ( const auto & [id, record] : historyDir_->recordRange() )
      // What is being taken down has its summary.
      if ( ( unit.empty() || record->unitName() == unit ) && !newestFirst.count( id ) ) {
         auto summary = Vel::make< HistorySummary >( id, record->unitName() );
         summarize( *record, wallOffset( *record ), *summary );
         newestFirst.emplace( id, std::move( summary ) );
      }
   std::vector< Vel::Ptr< const HistorySummary > > list;
   for ( const auto & [id, summary] : newestFirst )
      if ( list.size() < limit )
         list.push_back( summary );
   return summariesText( list );
}

Archive::Pieces Archive::record( Vel::U32 id ) const {
   const std::string name = std::to_string( id );
   if ( !historyDir_->summary( id ) ) {
      const HistoryRecord * const record = historyDir_->record( id );
      if ( !record )
         throw Api::Error{ Api::ErrorCode::notFound, "there is no maintenance " + name, name };
      return [text = std::make_shared< RecordText >( textOf( *record ) )] { return text->next(); };
   }
   auto file = FilePieces::open( path( id ) );
   // It was written whole or not at all. Whoever has cut it off since has taken the line feed at its end.
   if ( !file || file->last() != '\n' )
      throw Api::Error{
         Api::ErrorCode::internal,
         "the record of maintenance " + name + ( file ? " is damaged" : " cannot be read" ), path( id ) };
   return [file = std::make_shared< FilePieces >( std::move( *file ) ), name, path = path( id )] {
      if ( auto piece = file->next() )
         return std::move( *piece );
      throw Api::Error{
         Api::ErrorCode::internal, "the record of maintenance " + name + " cannot be read", path };
   };
}

} // namespace Agent
