// The line to the agent: reads, and the stream of what happens. Knows when the agent was last heard of.
//
// live: the stream is open. late: it is, but reads are not answered. polling: it is not, but reads are answered.
// stale: neither. asleep: nobody looks at the page, and nothing is asked for.

const root = 'api/v1/';
/** The agent sends a heartbeat at least this often, in seconds. */
const heartbeat = 15;
const silence = 2 * heartbeat;
/** A stream that is asked for again and answers within this time was never missed. */
const grace = 2;
/** A read that takes longer is taken for lost. */
const patience = 10;
/** So many reads in a row, or none that was answered for so long: what the page shows is old, whatever the stream brings. */
const mostLost = 2, oldRead = 40;
const firstPause = 0.5, longestPause = 5;

/** An answer of the agent that is no success; `status` is that of HTTP, `where` what it is about. */
export class Refused extends Error {
   constructor( status, message, where = null ) {
      super( message );
      this.status = status;
      this.where = where;
   }
   /** It serves too many others at the moment. */
   get busy() { return this.status === 503; }
}

/** The one line of this page, which every read tells whether it was answered. */
let line = null;

/** Reads what the API says. Throws Refused, or what fetch throws when nobody answers. */
export async function read( path ) {
   const limit = new AbortController();
   const timer = setTimeout( () => limit.abort(), patience * 1000 );
   try {
      const reply = await fetch( root + path, { headers: { Accept: 'application/json' }, cache: 'no-store', signal: limit.signal } );
      const body = await reply.json().catch( ( error ) => {
         if ( error instanceof SyntaxError )
            return null;
         throw error;
      } );
      line?.isAnswered();
      if ( !reply.ok || body === null )
         throw new Refused( reply.status, body?.error?.message ?? `status ${reply.status}`, body?.error?.where );
      return body;
   } catch ( error ) {
      if ( !( error instanceof Refused ) )
         line?.isLost();
      throw error;
   } finally {
      clearTimeout( timer );
   }
}

/** Null for what does not exist (here, or not yet there). */
export async function optional( path ) {
   try {
      return await read( path );
   } catch ( error ) {
      if ( error instanceof Refused && error.status === 404 )
         return null;
      throw error;
   }
}

/**
 * The stream. Calls `onEvent( type, data )` for each event, `onUp( resumed )` when it is open, and `onState()` when
 * `state` has changed. Goes on where it was: it asks for what came after the last event that it has seen; then it is
 * resumed. `onSetBack( seconds )`: our clock has been set back by so much.
 *
 * Browsers keep few connections to one address, and a stream takes one for as long as it is open. So a page that is not
 * looked at has none.
 */
export class Stream {
   constructor( { onEvent, onUp, onState, onSetBack, types } ) {
      Object.assign( this, { onEvent, onUp, onState, onSetBack, types } );
      this.sequence = null;
      this.heard = this.said = this.answered = Date.now();   ///< milliseconds; of the agent, of the stream, of reads
      this.lookedAt = Date.now();
      this.lost = 0;              ///< reads in a row that were not answered
      this.brokenAt = this.wokenAt = this.askedAt = 0;   ///< milliseconds
      this.state = 'asking';
      this.asleep = false;
      this.open = false;
      this.pause = firstPause;
      this.timer = null;
      this.source = null;
      line = this;
   }
   start() {
      this.sleepIs( document.hidden );
      document.addEventListener( 'visibilitychange', () => this.sleepIs( document.hidden ) );
      setInterval( () => this.look(), 1000 );
   }
   sleepIs( asleep ) {
      if ( this.asleep === asleep && this.source )
         return;
      this.asleep = asleep;
      if ( asleep ) {
         this.close();
         clearTimeout( this.timer );
         this.timer = null;
      } else {
         this.pause = firstPause;
         this.answered = this.brokenAt = this.wokenAt = Date.now();
         this.lost = 0;
         this.ask();
      }
      this.find();
   }
   close() {
      this.source?.close();
      this.open = false;
   }
   ask() {
      this.timer = null;
      this.askedAt = Date.now();
      const resumed = this.sequence !== null;
      const after = resumed ? `&after=${this.sequence}` : '';
      const source = this.source = new EventSource( `${root}events?rates=1${after}` );
      source.onopen = () => {
         this.pause = firstPause;
         this.open = true;
         this.isHeard();
         this.onUp( resumed );
      };
      source.onerror = () => this.again();
      for ( const type of this.types )
         source.addEventListener( type, ( event ) => this.take( type, event ) );
   }
   take( type, event ) {
      this.isHeard();
      if ( event.lastEventId )
         this.sequence = Number( event.lastEventId );
      let data;
      try {
         data = JSON.parse( event.data );
      } catch {
         return;
      }
      this.onEvent( type, data );
   }
   /** By the stream. */
   isHeard() {
      this.lookAtClock();
      this.heard = this.said = Date.now();
      this.find();
   }
   /** By a read. */
   isAnswered() {
      this.lookAtClock();
      this.heard = this.answered = Date.now();
      this.lost = 0;
      this.find();
   }
   isLost() {
      ++this.lost;
      this.find();
   }
   /** Finds out in what state it is. */
   find() {
      const now = Date.now();
      const silent = now - Math.max( this.heard, this.wokenAt ) > silence * 1000;
      if ( this.asleep )
         this.stateIs( 'asleep' );
      else if ( this.open && !( silent && this.lost ) )
         this.stateIs( this.lost >= mostLost || now - this.answered > oldRead * 1000 ? 'late' : 'live' );
      else if ( silent || this.lost )
         this.stateIs( 'stale' );
      else if ( this.answered > this.brokenAt && ( this.timer !== null || now - this.askedAt > grace * 1000 ) )
         this.stateIs( 'polling' );
      else if ( this.state === 'asleep' )
         this.stateIs( 'asking' );
   }
   stateIs( state ) {
      if ( this.state === state )
         return;
      this.state = state;
      this.onState();
   }
   again() {
      if ( this.open )
         this.brokenAt = Date.now();
      this.close();
      this.timer ??= setTimeout( () => this.ask(), this.pause * 1000 );
      this.pause = Math.min( 2 * this.pause, longestPause );
      // Whether the agent is gone or only the stream.
      read( 'agent' ).catch( () => {} );
   }
   /** Before a time is noted, so that all that are noted are of one clock. */
   lookAtClock() {
      const now = Date.now();
      if ( now < this.lookedAt )
         this.setBack( this.lookedAt - now );
      this.lookedAt = now;
   }
   /** So that silence is noticed in time. Forward it cannot be told from a machine that has slept, and is like it. */
   setBack( by ) {
      for ( const time of [ 'heard', 'said', 'answered', 'brokenAt', 'wokenAt', 'askedAt' ] )
         this[ time ] -= by;
      this.onSetBack( by / 1000 );
   }
   /** A line that is cut without a word stays open for ever. */
   look() {
      this.lookAtClock();
      const now = Date.now();
      if ( this.asleep )
         return;
      if ( this.timer === null && now - this.said >= silence * 1000 ) {
         if ( now - this.askedAt > silence * 1000 ) {
            this.source.close();
            this.ask();
         } else if ( now - this.askedAt > grace * 1000 && this.open ) {
            this.open = false;
            this.brokenAt = now;
            read( 'agent' ).catch( () => {} );
         }
      }
      this.find();
   }
}

/**
 * What a view reads for itself: one read at a time, tried again after pauses that grow while nobody answers, not while
 * nobody looks, and never after `stop()`. `path()` says what to read; `onBody( body )`: null if it does not exist;
 * `onRefused( error )`: the agent does not give it, and is not asked again until `ask()`, unless it is only busy.
 */
export class Reading {
   constructor( { path, onBody, onRefused = () => {} } ) {
      Object.assign( this, { path, onBody, onRefused } );
      this.reading = this.wanted = this.stopped = false;
      this.pause = firstPause;
      this.timer = null;
   }
   /** Reads it, and once more if it is being read already. */
   async ask() {
      clearTimeout( this.timer );
      this.wanted = true;
      if ( this.reading )
         return;
      this.reading = true;
      try {
         while ( this.wanted && !this.stopped ) {
            this.wanted = false;
            const body = await optional( this.path() );
            this.pause = firstPause;
            if ( !this.stopped && !this.wanted )
               this.onBody( body );
         }
      } catch ( error ) {
         if ( this.stopped )
            return;
         const refused = error instanceof Refused;
         if ( refused )
            this.onRefused( error );
         if ( !refused || error.busy )
            this.later();
      } finally {
         this.reading = false;
      }
   }
   later() {
      this.pause = Math.min( 2 * this.pause, 12 * longestPause );
      this.timer = setTimeout( () => ( document.hidden ? this.later() : this.ask() ), this.pause * 1000 );
   }
   stop() {
      this.stopped = true;
      clearTimeout( this.timer );
   }
}
