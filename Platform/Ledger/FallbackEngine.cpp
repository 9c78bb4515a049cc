#include "Platform/Ledger/FallbackEngine.h"

#include "Platform/Ledger/Records.h"
#include "Platform/Vel/Error.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Ledger {

namespace {

/// How the file begins: what it is, and the number of its form. Then, in the byte form of Vel::Codec: the number of the
/// transaction before and its own, the id and the name of the store that it is for (not in the first form), the beginnings
/// of keys and the records, each with their count, and a checksum of all that.
constexpr std::string_view fileTitle = "drainwatch, not in the state store yet, form ";
constexpr unsigned firstForm = 1;
constexpr unsigned fileForm = 2;

Vel::String fileBegin( unsigned form ) { return Vel::text( fileTitle, form, "\n" ); }

/// The number of the transaction that has written a header, as the schema of this version has it; nothing: it is another
/// one, or damaged.
std::optional< Vel::U64 > transactionOf( std::string_view header ) {
   Vel::ByteReader reader( header );
   const auto schema = readValue< Vel::U32 >( reader );
   const auto transaction = readValue< Vel::U64 >( reader );
   return reader.failed() || schema != storeSchema ? std::nullopt : std::optional( transaction );
}

/// Empty if they do not write it.
Vel::String valueIn( const StoreChanges & changes, const RecordKey & key ) {
   const auto record = changes.records.find( Vel::String( std::string_view( key ) ) );
   return record == changes.records.end() ? Vel::String() : record->second.value_or( Vel::String() );
}

Vel::U64 transactionOf( const StoreChanges & changes ) {
   return transactionOf( valueIn( changes, RecordKey::header() ) ).value_or( 0 );
}

/// FNV-1a.
Vel::U64 checksum( std::string_view bytes ) {
   Vel::U64 sum = 0xcbf29ce484222325;
   for ( const char byte : bytes )
      sum = ( sum ^ static_cast< unsigned char >( byte ) ) * 0x100000001b3;
   return sum;
}

/// The first key of a sorted collection at or behind the prefix, and those after it as long as they begin with it.
template < class Sorted >
void eraseBeginning( Sorted & sorted, std::string_view prefix ) {
   auto first = sorted.lower_bound( Vel::String( prefix ) );
   auto last = first;
   const auto keyOf = []( const auto & item ) -> const Vel::String & {
      if constexpr ( requires { item.first; } )
         return item.first;
      else
         return item;
   };
   while ( last != sorted.end() && keyOf( *last ).starts_with( prefix ) )
      ++last;
   sorted.erase( first, last );
}

struct Descriptor {
   int number = -1;
   ~Descriptor() {
      if ( number >= 0 )
         close( number );
   }
};

bool writeAll( int descriptor, std::string_view text ) {
   while ( !text.empty() ) {
      const ssize_t count = write( descriptor, text.data(), text.size() );
      if ( count < 0 && errno != EINTR )
         return false;
      text.remove_prefix( count > 0 ? static_cast< std::size_t >( count ) : 0 );
   }
   return true;
}

/// 0, or the number of what went wrong.
int writeWhole( const Vel::String & path, std::string_view text ) {
   const Vel::String fresh = path + ".new";
   Descriptor out{ open( fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600 ) };
   if ( out.number < 0 )
      return errno;
   // Where the folder is on a disk, a name must not be there before what it stands for.
   if (
      writeAll( out.number, text ) && fsync( out.number ) == 0 &&
      std::rename( fresh.c_str(), path.c_str() ) == 0 )
      return 0;
   const int error = errno;
   unlink( fresh.c_str() );
   return error;
}

/// 0, or the number of what went wrong.
int readWhole( const Vel::String & path, Vel::String & text ) {
   // One that is no file must not keep us waiting.
   const Descriptor in{ open( path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC ) };
   if ( in.number < 0 )
      return errno;
   char piece[65536];
   for ( ;; ) {
      const ssize_t count = read( in.number, piece, sizeof piece );
      if ( count < 0 && errno != EINTR )
         return errno;
      if ( count == 0 )
         return 0;
      text.append( piece, count > 0 ? static_cast< std::size_t >( count ) : 0 );
   }
}

} // namespace

// ---- changes

void StoreChanges::delAll( std::string_view prefix ) {
   eraseBeginning( records, prefix );
   if ( deletes( prefix ) )
      return;
   eraseBeginning( gone, prefix );
   gone.emplace( prefix );
}

void StoreChanges::add( const StoreChanges & later ) {
   for ( const Vel::String & prefix : later.gone )
      delAll( prefix );
   for ( const auto & [key, value] : later.records )
      records[key] = value;
}

bool StoreChanges::deletes( std::string_view key ) const {
   // None in the set begins with another one, so only the last one before the key can be the key's.
   auto after = gone.upper_bound( Vel::String( key ) );
   return after != gone.begin() && key.starts_with( *--after );
}

// ---- the file

Status FallbackEngine::writeFile( const StoreChanges & changes ) const {
   Vel::String text = fileBegin( fileForm );
   writeValue( text, base_ );
   writeValue( text, transactionOf( changes ) );
   writeSized( text, id_ );
   writeSized( text, name() );
   writeValue( text, static_cast< Vel::U64 >( changes.gone.size() ) );
   for ( const Vel::String & prefix : changes.gone )
      writeSized( text, prefix );
   writeValue( text, static_cast< Vel::U64 >( changes.records.size() ) );
   for ( const auto & [key, value] : changes.records ) {
      writeSized( text, key );
      writeValue( text, value.has_value() );
      if ( value )
         writeSized( text, *value );
   }
   writeValue( text, checksum( text ) );
   if ( const int error = writeWhole( file_, text ) )
      return Status::failure( file_ + ": cannot write: " + std::strerror( error ) );
   return {};
}

Status FallbackEngine::readFile( const Vel::String & text ) {
   const auto damaged = [this]( const char * what ) {
      return Status::unusable( Vel::text(
         name(), ": ", file_, ", which holds what could not be written to it, is damaged: ", what,
         "; without that file, what the store itself holds is gone on with" ) );
   };
   const bool isFirstForm = text.starts_with( fileBegin( firstForm ) );
   const Vel::String begin = fileBegin( isFirstForm ? firstForm : fileForm );
   if ( !text.starts_with( begin ) )
      return damaged( "it does not begin as such a file of this version does" );
   Vel::U64 sum = 0;
   if ( text.size() < begin.size() + sizeof sum )
      return damaged( "it is cut short" );
   const std::string_view summed( text.data(), text.size() - sizeof sum );
   std::memcpy( &sum, summed.data() + summed.size(), sizeof sum );
   if ( sum != checksum( summed ) )
      return damaged( "its checksum is wrong" );
   Vel::ByteReader reader( summed.substr( begin.size() ) );
   const auto base = readValue< Vel::U64 >( reader );
   const auto transaction = readValue< Vel::U64 >( reader );
   const Vel::String id( isFirstForm ? std::string_view() : readSized( reader ) );
   const Vel::String nameThen( isFirstForm ? std::string_view() : readSized( reader ) );
   StoreChanges changes;
   for ( auto left = readValue< Vel::U64 >( reader ); left > 0 && !reader.failed(); --left )
      changes.delAll( readSized( reader ) );
   for ( auto left = readValue< Vel::U64 >( reader ); left > 0 && !reader.failed(); --left ) {
      const std::string_view key = readSized( reader );
      if ( key.empty() || key.size() > maxKey )
         reader.failedIs();
      auto & value = changes.records[Vel::String( key )];
      if ( readValue< bool >( reader ) )
         value = Vel::String( readSized( reader ) );
   }
   if ( reader.failed() || !reader.atEnd() || transaction != transactionOf( changes ) )
      return damaged( "its records cannot be read" );
   // It may have been written before the engine had an id, and bring the one that the engine has by now.
   const bool isOfThisStore = isFirstForm    ? true
                              : !id.empty()  ? id == id_
                              : !id_.empty() ? valueIn( changes, RecordKey::storeId() ) == id_
                                             : nameThen == name();
   if ( !isOfThisStore )
      return Status::unusable( Vel::text(
         name(), ": ", file_, " holds what could not be written to another store",
         nameThen == name() ? Vel::String( " that was in its place: put that back" )
                            : ", " + nameThen + ": go on with that one",
         ", or remove the file" ) );
   if ( base > base_ )
      return Status::unusable( Vel::text(
         name(), ": ", file_, ", which holds what could not be written to it, is ",
         isFirstForm ? "of another store, or " : "",
         "of this one as it was later: put that back, or remove the file" ) );
   // Otherwise the engine has taken more since.
   if ( base_ <= transaction )
      unstored_ = std::move( changes );
   return {};
}

Status FallbackEngine::readEngine( bool & isOfThisVersion ) {
   base_ = 0;
   id_.clear();
   isOfThisVersion = true;
   const Status status = engine_.walk( RecordKey::header(), [&]( std::string_view, std::string_view header ) {
      const std::optional< Vel::U64 > transaction = transactionOf( header );
      isOfThisVersion = transaction.has_value();
      base_ = transaction.value_or( 0 );
      return false;
   } );
   return !status.ok() || !isOfThisVersion
             ? status
             : engine_.walk( RecordKey::storeId(), [this]( std::string_view, std::string_view id ) {
                  id_ = id;
                  return false;
               } );
}

/// What an earlier process has left.
Status FallbackEngine::takeUp() {
   unstored_ = {};
   isOvertaken_ = false;
   bool isOfThisVersion = false;
   if ( Status status = readEngine( isOfThisVersion ); !status.ok() || !isOfThisVersion )
      return status;
   Vel::String text;
   const int error = readWhole( file_, text );
   if ( error == ENOENT )
      return {};
   if ( error )
      return Status::failure( Vel::text(
         name(), ": cannot read ", file_,
         ", which holds what could not be written to it: ", std::strerror( error ) ) );
   if ( Status status = readFile( text ); !status.ok() )
      return status;
   isOvertaken_ = unstored_.empty();
   return {};
}

// ---- the engine

Status FallbackEngine::open() {
   abort();
   committed_ = true;
   tried_ = false;
   const Status status = engine_.open();
   return status.ok() ? takeUp() : status;
}

Status FallbackEngine::checked( std::string_view key ) const {
   VEL_ASSERT( open_, "open()" );
   if ( key.empty() || key.size() > maxKey )
      return Status::failure( Vel::text( name(), ": cannot write: a key of ", key.size(), " bytes" ) );
   return {};
}

Status FallbackEngine::begin() {
   VEL_ASSERT( !open_, "!open()" );
   open_ = true;
   return {};
}

Status FallbackEngine::put( std::string_view key, std::string_view value ) {
   Status status = checked( key );
   if ( status.ok() )
      written_.records[Vel::String( key )] = Vel::String( value );
   return status;
}

Status FallbackEngine::del( std::string_view key ) {
   Status status = checked( key );
   if ( status.ok() )
      written_.records[Vel::String( key )] = std::nullopt;
   return status;
}

Status FallbackEngine::delAll( std::string_view prefix ) {
   VEL_ASSERT( open_, "open()" );
   written_.delAll( prefix );
   return {};
}

void FallbackEngine::abort() {
   written_ = {};
   open_ = false;
}

Status FallbackEngine::commit() {
   VEL_ASSERT( open_, "open()" );
   StoreChanges all = unstored_;
   if ( all.empty() )
      all = std::move( written_ );
   else
      all.add( written_ );
   abort();
   tried_ = true;
   last_ = store( all );
   committed_ = last_.ok();
   if ( committed_ )
      return {};
   // What was written and deleted while the engine takes nothing need not be deleted in it.
   if ( !unstored_.empty() ) {
      std::erase_if(
         all.records, [&]( const auto & record ) { return !record.second && !mayHold( record.first ); } );
      std::erase_if( all.gone, [&]( const Vel::String & prefix ) { return !mayHold( prefix ); } );
   }
   const Status status = writeFile( all );
   committed_ = status.ok();
   if ( !committed_ )
      return Status::failure( last_.text() + "; nor is it kept meanwhile: " + status.text() );
   unstored_ = std::move( all );
   isOvertaken_ = false;
   return {};
}

Status FallbackEngine::settle() {
   const bool tried = std::exchange( tried_, false );
   if ( std::exchange( isOvertaken_, false ) )
      unlink( file_.c_str() );
   if ( unstored_.empty() )
      return {};
   if ( !tried )
      last_ = store( unstored_ );
   return last_;
}

/// Brings all of it into the engine. These are, or contain, all that is in the file only.
Status FallbackEngine::store( const StoreChanges & changes ) {
   Status status = writeInto( changes );
   if ( status.ok() ) {
      base_ = transactionOf( changes );
      if ( Vel::String id = valueIn( changes, RecordKey::storeId() ); !id.empty() )
         id_ = std::move( id );
      if ( !unstored_.empty() )
         unlink( file_.c_str() );
      unstored_ = {};
   } else if ( engine_.begin().ok() )
      engine_.abort(); // it can be read again
   return status;
}

Status FallbackEngine::writeInto( const StoreChanges & changes ) {
   Status status = engine_.begin();
   if ( !status.ok() )
      return status;
   for ( const Vel::String & prefix : changes.gone )
      if ( status.ok() )
         status = engine_.delAll( prefix );
   for ( const auto & [key, value] : changes.records )
      if ( status.ok() )
         status = value ? engine_.put( key, *value ) : engine_.del( key );
   if ( status.ok() )
      return engine_.commit();
   engine_.abort();
   return status;
}

/// Whether the engine has records whose keys begin so; also if nobody can say.
bool FallbackEngine::mayHold( std::string_view prefix ) {
   bool found = false;
   const Status status =
      engine_.walk( prefix, [&]( std::string_view, std::string_view ) { return !( found = true ); } );
   return found || !status.ok();
}

Status FallbackEngine::walk( std::string_view prefix, const Visit & visit ) {
   VEL_ASSERT( !open_, "!open()" );
   if ( unstored_.empty() )
      return engine_.walk( prefix, visit );
   std::map< Vel::String, Vel::String > records;
   const Status status = engine_.walk( prefix, [&]( std::string_view key, std::string_view value ) {
      if ( !unstored_.deletes( key ) )
         records.emplace_hint( records.end(), key, value );
      return true;
   } );
   if ( !status.ok() )
      return status;
   for ( auto it = unstored_.records.lower_bound( Vel::String( prefix ) );
         it != unstored_.records.end() && it->first.starts_with( prefix ); ++it )
      if ( it->second )
         records[it->first] = *it->second;
      else
         records.erase( it->first );
   for ( const auto & [key, value] : records )
      if ( !visit( key, value ) )
         break;
   return {};
}

} // namespace Ledger
