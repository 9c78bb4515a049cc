#include "Platform/Ledger/LmdbEngine.h"

#include "Platform/Vel/Error.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <lmdb.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
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

/// Whether a collection of records can be read, each byte of it, and has as many as it says.
bool isReadable( MDB_txn * txn, unsigned dbi ) {
   MDB_stat stat;
   if ( mdb_stat( txn, dbi, &stat ) )
      return true; // whoever opens it says why
   const Cursor cursor( txn, dbi );
   MDB_val k, v;
   std::size_t records = 0;
   [[maybe_unused]] volatile char seen = 0;
   int error = cursor.seek( "", k, v );
   for ( ; !error && records <= stat.ms_entries; error = cursor.next( k, v ), ++records )
      for ( const std::string_view bytes : { view( k ), view( v ) } )
         for ( const char c : bytes )
            seen = c;
   return error == MDB_NOTFOUND ? records == stat.ms_entries : error && !isOfTheFile( error );
}

/// In a process of its own, which nothing keeps from ending by a signal. Its status: whether it can be read.
[[noreturn]] void readInChild( const char * file, std::size_t size ) {
   for ( const int signal : { SIGBUS, SIGSEGV, SIGABRT, SIGFPE, SIGILL } )
      std::signal( signal, SIG_DFL );
   constexpr rlimit none{};
   setrlimit( RLIMIT_CORE, &none );
   MDB_env * env = nullptr;
   MDB_txn * txn = nullptr;
   unsigned records = 0;
   bool readable = true;
   // What fails here and is not of the file fails again for whoever opens it, and is told then.
   if (
      !mdb_env_create( &env ) && !mdb_env_set_assert( env, []( MDB_env *, const char * ) { _exit( 1 ); } ) &&
      !mdb_env_set_mapsize( env, size ) &&
      !mdb_env_open( env, file, MDB_NOSUBDIR | MDB_RDONLY | MDB_NOLOCK, 0 ) &&
      !mdb_txn_begin( env, nullptr, MDB_RDONLY, &txn ) && !mdb_dbi_open( txn, nullptr, 0, &records ) ) {
      constexpr unsigned freePages = 0;
      readable = isReadable( txn, records ) && isReadable( txn, freePages );
   }
   _exit( readable ? 0 : 1 );
}

bool isEndOfUnreadable( int status ) {
   if ( WIFEXITED( status ) )
      return WEXITSTATUS( status ) == 1;
   const int signal = WTERMSIG( status );
   return signal == SIGBUS || signal == SIGSEGV || signal == SIGABRT || signal == SIGFPE || signal == SIGILL;
}

/// LMDB says that input or output has failed when a disk becomes full in the middle of a write.
const char * reason( int error, const Vel::String & file ) {
   struct statvfs disk {};
   if ( error == EIO && statvfs( file.c_str(), &disk ) == 0 && disk.f_bavail == 0 )
      error = ENOSPC;
   return mdb_strerror( error );
}
} // namespace

LmdbEngine::LmdbEngine( const Vel::String & kind, Vel::String file, Durability durability, std::size_t size )
   : name_( kind + " " + file ), file_( std::move( file ) ), durability_( durability ), size_( size ) {}

LmdbEngine::~LmdbEngine() { close(); }

Status LmdbEngine::outcome( const char * operation, int error ) {
   if ( !error )
      return {};
   full_ = error == MDB_MAP_FULL;
   const Vel::String text = name_ + ": cannot " + operation + ": " + reason( error, file_ );
   return isOfTheFile( error ) ? Status::unusable( text ) : Status::failure( text );
}

void LmdbEngine::close() {
   abort();
   if ( MDB_env * env = std::exchange( env_, nullptr ) )
      mdb_env_close( env );
}

Status LmdbEngine::open() {
   close();
   if ( !opened_ )
      if ( Status status = readable(); !status.ok() )
         return status;
   const int error = openEnvironment();
   if ( error )
      close();
   else {
      opened_ = true;
      last_ = lastTransaction();
      unsure_ = false;
   }
   return outcome( "open", error );
}

Status LmdbEngine::readable() const {
   struct stat there {};
   if ( stat( file_.c_str(), &there ) != 0 || there.st_size == 0 )
      return {};
   const pid_t child = fork();
   if ( child == 0 )
      readInChild( file_.c_str(), size_ );
   int status = 0;
   pid_t ended = -1;
   while ( child > 0 && ( ended = waitpid( child, &status, 0 ) ) < 0 && errno == EINTR ) {
   }
   return ended == child && isEndOfUnreadable( status )
             ? Status::unusable( name_ + ": damaged: it is cut off or spoilt" )
             : Status();
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
   struct stat there {};
   if ( stat( file_.c_str(), &there ) != 0 )
      return errno;
   device_ = there.st_dev;
   inode_ = there.st_ino;
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
   const bool full = std::exchange( full_, false );
   if ( full )
      size_ *= 2;
   if ( full || isAnotherFile() )
      close();
   // Also after a failure that LMDB does not get over by itself.
   if ( !env_ )
      if ( Status status = opened_ ? reopen() : open(); !status.ok() )
         return status;
   const Status status = outcome( "begin", beginTransaction() );
   if ( !status.ok() || isWhatWasCommitted() )
      return status;
   close();
   return notWhatWasCommitted( "is not what was written" );
}

/// What is there, and creates nothing.
Status LmdbEngine::reopen() {
   if ( access( file_.c_str(), F_OK ) != 0 && errno == ENOENT )
      return notWhatWasCommitted( "is gone" );
   const int error = openEnvironment();
   if ( error )
      close();
   return outcome( "open", error );
}

/// Somebody has taken the one away that was opened. If that is not known, it is taken to be there.
bool LmdbEngine::isAnotherFile() const {
   struct stat there {};
   if ( !env_ )
      return false;
   if ( stat( file_.c_str(), &there ) != 0 )
      return errno == ENOENT;
   return there.st_dev != device_ || there.st_ino != inode_;
}

/// Whether the transaction that has begun stands on ours.
bool LmdbEngine::isWhatWasCommitted() {
   const Vel::U64 base = mdb_txn_id( txn_ ) - 1;
   if ( base != last_ && !( unsure_ && base == last_ + 1 ) )
      return false;
   last_ = base;
   unsure_ = false;
   return true;
}

Status LmdbEngine::notWhatWasCommitted( const char * what ) const {
   return Status::failure(
      name_ + ": " + what +
      ": put it back, or end what is under way and release its links before this program is started again" );
}

Vel::U64 LmdbEngine::lastTransaction() const {
   MDB_envinfo info{};
   mdb_env_info( env_, &info );
   return info.me_last_txnid;
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
   unsure_ = error != 0;
   // LMDB refuses to go on after some of these failures; the next transaction opens it again.
   if ( error )
      close();
   else
      last_ = lastTransaction();
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
