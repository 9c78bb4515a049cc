// What has happened, in its order and each event once, from whatever side and in whatever order it is told.

export class Happened {
   /** Keeps `most` events, or a few more. */
   constructor( most ) {
      this.most = most;
      this.events = [];      ///< oldest first
      this.known = new Set();
      this.anew = null;      ///< number of the event with which another log has begun
   }
   /** Number of the newest that is known; null: none. */
   get last() { return this.events.at( -1 )?.sequence ?? null; }

   take( event ) {
      const { events, known } = this;
      if ( !Number.isFinite( event.sequence ) || known.has( event.sequence ) )
         return;
      // It was there once, and there was no room for it any more.
      if ( events.length >= this.most && event.sequence < events[ 0 ].sequence )
         return;
      let at = events.length;
      while ( at && events[ at - 1 ].sequence > event.sequence )
         --at;
      events.splice( at, 0, event );
      known.add( event.sequence );
      if ( events.length > 1.2 * this.most )
         for ( const old of events.splice( 0, events.length - this.most ) )
            known.delete( old.sequence );
   }
   /** The agent has another log than the one that is known, which begins with that event. */
   begunAnew( first ) {
      this.events = [];
      this.known.clear();
      this.anew = first;
   }
   /**
    * The last `most` of the events that are wanted, oldest first; where events are missing between any two, there is
    * { missed: how many, before: the event that came after them }. 0: nobody knows how many.
    */
   rows( wanted = () => true, most = Infinity ) {
      const result = [];
      this.events.forEach( ( event, i ) => {
         const missed = i ? event.sequence - this.events[ i - 1 ].sequence - 1 : 0;
         if ( missed || event.sequence === this.anew )
            result.push( { missed, before: event } );
         if ( wanted( event ) )
            result.push( event );
      } );
      return result.slice( -most );
   }
}
