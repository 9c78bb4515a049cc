#pragma once

#include "Platform/Vel/Error.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <utility>

/// Purpose: counted pointers. The count lives in the object; the low 29 bits of its word are the count.
///
/// Invariants:
/// 1. An object is made by Vel::make and starts with a count of 1, so that its own constructor may hand out
///    counted pointers to it.
/// 2. The last pointer to go destroys the object at once: there is no delayed deletion and no hidden
/// reference.
/// 3. While its destructor runs the count cannot reach zero a second time.
/// 4. Counts are atomic only when the process has chosen so at start (threadSafePointersIs), before any
/// object
///    exists; the agent and its plug-ins run on one thread and leave it off.
namespace Vel {

namespace Detail {
inline bool threadSafePointers = false;
}

/// Chooses atomic counting for the whole process. Must be called before the first object is made.
inline void threadSafePointersIs( bool on ) { Detail::threadSafePointers = on; }
inline bool threadSafePointers() { return Detail::threadSafePointers; }

/// Base of everything that is held by Ptr.
class PtrInterface {
 public:
   static constexpr U32 countMask = ( 1u << 29 ) - 1;

   PtrInterface( const PtrInterface & ) = delete;
   PtrInterface & operator=( const PtrInterface & ) = delete;

   /// The number of counted pointers to this object. For diagnostics.
   U32 getRefCount() const { return __atomic_load_n( &countWord_, __ATOMIC_RELAXED ) & countMask; }

   void velRef() const {
      if ( Detail::threadSafePointers ) [[unlikely]]
         __atomic_fetch_add( &countWord_, 1u, __ATOMIC_RELAXED );
      else
         ++countWord_;
   }

   void velUnref() const {
      U32 left;
      if ( Detail::threadSafePointers ) [[unlikely]]
         left = __atomic_sub_fetch( &countWord_, 1u, __ATOMIC_ACQ_REL );
      else
         left = --countWord_;
      if ( ( left & countMask ) == 0 ) [[unlikely]]
         velDestroy();
   }

 protected:
   PtrInterface() = default;
   virtual ~PtrInterface() = default;

 private:
   void velDestroy() const;

   mutable U32 countWord_ = 1;

 protected:
   /// Bits that an Entity keeps beside the count (they would be padding otherwise).
   mutable U32 velFlags_ = 0;
};

/// Counted pointer to T (which may be const). Null by default. Copying counts, moving does not.
template < class T >
class Ptr {
 public:
   Ptr() = default;
   Ptr( std::nullptr_t ) {}
   Ptr( T * object ) : object_( object ) { ref(); }
   Ptr( const Ptr & other ) : object_( other.object_ ) { ref(); }
   Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template < class U >
   requires std::is_convertible_v< U *, T * > Ptr( const Ptr< U > & other ) : object_( other.get() ) {
      ref();
   }
   template < class U >
   requires std::is_convertible_v< U *, T * > Ptr( Ptr< U > && other )
   noexcept : object_( other.velRelease() ) {}
   ~Ptr() { unref(); }

   Ptr & operator=( const Ptr & other ) {
      Ptr( other ).swap( *this );
      return *this;
   }
   Ptr & operator=( Ptr && other ) noexcept {
      Ptr( std::move( other ) ).swap( *this );
      return *this;
   }

   T * get() const { return object_; }
   T & operator*() const { return *object_; }
   T * operator->() const { return object_; }
   explicit operator bool() const { return object_ != nullptr; }
   void swap( Ptr & other ) noexcept { std::swap( object_, other.object_ ); }

   friend bool operator==( const Ptr & a, const Ptr & b ) { return a.object_ == b.object_; }
   friend bool operator==( const Ptr & a, std::nullptr_t ) { return a.object_ == nullptr; }

   /// Takes over the reference that a new object starts with.
   static Ptr velAdopt( T * object ) {
      Ptr result;
      result.object_ = object;
      return result;
   }
   T * velRelease() { return std::exchange( object_, nullptr ); }

 private:
   void ref() const {
      if ( object_ )
         object_->velRef();
   }
   void unref() const {
      if ( object_ )
         object_->velUnref();
   }

   T * object_ = nullptr;
};

/// Makes an object; the result is the one reference to it.
template < class T, class... Args >
Ptr< T > make( Args &&... args ) {
   return Ptr< T >::velAdopt( new T( std::forward< Args >( args )... ) );
}

/// The object if the pointer is of that dynamic type, null otherwise.
template < class T, class U >
Ptr< T > ptrCast( const Ptr< U > & pointer ) {
   return Ptr< T >( dynamic_cast< T * >( pointer.get() ) );
}

/// The pointer itself; throws RangeError "null ValidPtr" when it is null.
template < class T >
const Ptr< T > & validPtr( const Ptr< T > & pointer ) {
   if ( !pointer )
      throw RangeError( "null ValidPtr" );
   return pointer;
}

} // namespace Vel

template < class T >
struct std::hash< Vel::Ptr< T > > {
   std::size_t operator()( const Vel::Ptr< T > & p ) const { return std::hash< T * >()( p.get() ); }
};
