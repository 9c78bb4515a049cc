#include "Platform/Ledger/LmdbEngine.h"

#include "Platform/Vel/Error.h"

#include <cerrno>
#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

namespace Ledger {

namespace {
MDB_val lmdbBytes( std::string_view bytes ) {
   // LMDB only reads what it is given.
   return { bytes.size(), const_cast< char * >( bytes.data() ) };
}
std::string_view view( const MDB_val & value ) {
   return { static_cast< const char * >( value.mv_data ), value.mv_size };
}

/// A cursor of a transaction.
class Cursor {
 public:
   Cursor( MDB_txn * txn, unsigned dbi ) : error_( mdb_cursor_open( txn, dbi, &cursor_ ) ) {}
   ~Cursor() {
      if ( cursor_ )
         mdb_cursor_close( cursor_ );
   }
   Cursor( const Cursor & ) = delete;
   Cursor & operator=( const Cursor & ) = delete;

   MDB_cursor * get() const { return cursor_; }
   /// Goes to the first record at or behind a key; an empty key is before all.
   int seek( std::string_view key, MDB_val & k, MDB_val & v ) const {
      if ( error_ )
         return error_;
      k = lmdbBytes( key );
      return mdb_cursor_get( cursor_, &k, &v, key.empty() ? MDB_FIRST : MDB_SET_RANGE );
   }
   int next( MDB_val & k, MDB_val & v ) const { return mdb_cursor_get( cursor_, &k, &v, MDB_NEXT ); }

 private:
   MDB_cursor * cursor_ = nullptr;
   int error_;
};

/// Whether it is the file that is wrong: no store, of another version of LMDB, or damaged.
bool isOfTheFile( int error ) {
   return error == MDB_INVALID || error == MDB_VERSION_MISMATCH || error == MDB_CORRUPTED ||
          error == MDB_PAGE_NOTFOUND;
}
} // namespace

LmdbEngine::LmdbEngine( const Vel::String & kind, Vel::String file, Durability durability, std::size_t size )
   : name_( kind + " " + file ), file_( std::move( file ) ), durability_( durability ), size_( size ) {}

LmdbEngine::~LmdbEngine() { close(); }

Status LmdbEngine::outcome( const char * operation, int error ) {
   if ( !error )
      return {};
   full_ = error == MDB_MAP_FULL;
   const Vel::String text = name_ + ": cannot " + operation + ": " + mdb_strerror( error );
   return isOfTheFile( error ) ? Status::unusable( text ) : Status::failure( text );
}

void LmdbEngine::close() {
   abort();
   if ( MDB_env * env = std::exchange( env_, nullptr ) )
      mdb_env_close( env );
}

Status LmdbEngine::open() {
   close();
   const int error = openEnvironment();
   if ( error )
      close();
   return outcome( "open", error );
}

int LmdbEngine::openEnvironment() {
   const bool created = access( file_.c_str(), F_OK ) != 0;
   unsigned flags = MDB_NOSUBDIR;
   if ( durability_ == Durability::unsynced )
      flags |= MDB_NOSYNC;
   if ( const int error = mdb_env_create( &env_ ) )
      return error;
   if ( const int error = mdb_env_set_mapsize( env_, size_ ) )
      return error;
   if ( const int error = mdb_env_open( env_, file_.c_str(), flags, 0600 ) )
      return error;
   if ( const int error = mdb_txn_begin( env_, nullptr, 0, &txn_ ) )
      return error;
   const int error = mdb_dbi_open( txn_, nullptr, 0, &dbi_ );
   abort();
   if ( error )
      return error;
   return created && durability_ == Durability::synced ? syncFolder() : 0;
}

int LmdbEngine::syncFolder() const {
   // A new file is safe only when its name is, too.
   const std::size_t slash = file_.rfind( '/' );
   const Vel::String folder = slash == Vel::String::npos ? "." : file_.substr( 0, slash + 1 );
   const int fd = ::open( folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC );
   if ( fd < 0 )
      return errno;
   const int error = fsync( fd ) ? errno : 0;
   ::close( fd );
   return error;
}

Status LmdbEngine::begin() {
   VEL_ASSERT( !txn_, "!txn()" );
   if ( std::exchange( full_, false ) )
      size_ *= 2;
   else if ( env_ )
      return outcome( "begin", beginTransaction() );
   // After a failure that LMDB does not get over by itself, or to get more room.
   const Status status = open();
   return status.ok() ? outcome( "begin", beginTransaction() ) : status;
}

int LmdbEngine::beginTransaction() {
   if ( const int error = mdb_txn_begin( env_, nullptr, 0, &txn_ ) )
      return error;
   const int error = mdb_cursor_open( txn_, dbi_, &writer_ );
   if ( error )
      abort();
   return error;
}

Status LmdbEngine::put( std::string_view key, std::string_view value ) {
   VEL_ASSERT( txn_, "txn()" );
   MDB_val k = lmdbBytes( key );
   MDB_val v = lmdbBytes( value );
   // Records come in the order of keys for the most part: a cursor finds the next one in the page it is in.
   return outcome( "write", mdb_cursor_put( writer_, &k, &v, 0 ) );
}

Status LmdbEngine::del( std::string_view key ) {
   VEL_ASSERT( txn_, "txn()" );
   MDB_val k = lmdbBytes( key );
   const int error = mdb_del( txn_, dbi_, &k, nullptr );
   return outcome( "delete", error == MDB_NOTFOUND ? 0 : error );
}

Status LmdbEngine::delAll( std::string_view prefix ) {
   VEL_ASSERT( txn_, "txn()" );
   const int error = delAllOf( prefix );
   return outcome( "delete", error == MDB_NOTFOUND ? 0 : error );
}

int LmdbEngine::delAllOf( std::string_view prefix ) {
   const Cursor cursor( txn_, dbi_ );
   MDB_val k, v;
   int error = cursor.seek( prefix, k, v );
   while ( !error && view( k ).starts_with( prefix ) ) {
      error = mdb_cursor_del( cursor.get(), 0 );
      if ( !error )
         error = cursor.next( k, v );
   }
   return error;
}

Status LmdbEngine::commit() {
   VEL_ASSERT( txn_, "txn()" );
   writer_ = nullptr; // ends with the transaction
   const int error = mdb_txn_commit( std::exchange( txn_, nullptr ) );
   const Status status = outcome( "commit", error );
   // LMDB refuses to go on after some of these failures; the next transaction opens it again.
   if ( error )
      close();
   return status;
}

void LmdbEngine::abort() {
   writer_ = nullptr;
   if ( MDB_txn * txn = std::exchange( txn_, nullptr ) )
      mdb_txn_abort( txn );
}

Status LmdbEngine::walk( std::string_view prefix, const Visit & visit ) {
   VEL_ASSERT( !txn_, "!txn()" );
   if ( !env_ )
      return outcome( "read", EBADF );
   if ( const int error = mdb_txn_begin( env_, nullptr, MDB_RDONLY, &txn_ ) )
      return outcome( "read", error );
   const int error = walkOver( prefix, visit );
   abort();
   return outcome( "read", error == MDB_NOTFOUND ? 0 : error );
}

int LmdbEngine::walkOver( std::string_view prefix, const Visit & visit ) {
   const Cursor cursor( txn_, dbi_ );
   MDB_val k, v;
   int error = cursor.seek( prefix, k, v );
   while ( !error && view( k ).starts_with( prefix ) && visit( view( k ), view( v ) ) )
      error = cursor.next( k, v );
   return error;
}

} // namespace Ledger
