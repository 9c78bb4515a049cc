// The line to the agent: reads, and the stream of what happens. Knows when the agent was last heard of.
//
// live: the stream is open. polling: it is not, but reads are answered. stale: neither.

const root = 'api/v1/';
/** The agent sends a heartbeat at least this often, in seconds. */
const heartbeat = 15;
const silence = 2 * heartbeat;
/** A stream that is asked for again and answers within this time was never missed. */
const grace = 2;
/** A read that takes longer is taken for lost. */
const patience = 10;
const firstPause = 0.5, longestPause = 5;

/** An answer of the agent that is no success; `status` is that of HTTP. */
export class Refused extends Error {
   constructor( status, message ) {
      super( message );
      this.status = status;
   }
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
         if ( limit.signal.aborted )
            throw error;
         return null;
      } );
      line?.isHeard();
      if ( !reply.ok || body === null )
         throw new Refused( reply.status, body?.error?.message ?? `status ${reply.status}` );
      return body;
   } catch ( error ) {
      if ( !( error instanceof Refused ) )
         line?.isLost();
      throw error;
   } finally {
      clearTimeout( timer );
   }
}

/**
 * The stream. Calls `onEvent( type, data )` for each event, `onUp()` when it is open, and `onState()` when `state` has
 * changed. Goes on where it was: it asks for what came after the last event that it has seen.
 */
export class Stream {
   constructor( { onEvent, onUp, onState, types } ) {
      Object.assign( this, { onEvent, onUp, onState, types } );
      this.sequence = null;
      this.heard = Date.now();    ///< milliseconds; of the agent
      this.said = Date.now();     ///< of the stream
      this.state = 'asking';
      this.open = false;
      this.pause = firstPause;
      this.timer = null;
      this.source = null;
      line = this;
   }
   start() {
      this.ask();
      setInterval( () => this.look(), 1000 );
   }
   ask() {
      this.timer = null;
      this.askedAt = Date.now();
      const after = this.sequence === null ? '' : `&after=${this.sequence}`;
      const source = this.source = new EventSource( `${root}events?rates=1${after}` );
      source.onopen = () => {
         this.pause = firstPause;
         this.open = true;
         this.said = Date.now();
         this.isHeard();
         this.onUp();
      };
      source.onerror = () => this.again();
      for ( const type of this.types )
         source.addEventListener( type, ( event ) => this.take( type, event ) );
   }
   take( type, event ) {
      this.said = Date.now();
      this.isHeard();
      if ( event.lastEventId )
         this.sequence = Number( event.lastEventId );
      let data;
      try {
         data = JSON.parse( event.data );
      } catch {
         return;
      }
      if ( type === 'dropped' && Number.isFinite( data.next ) )
         this.sequence = data.next - 1;
      this.onEvent( type, data );
   }
   isHeard() {
      this.heard = Date.now();
      this.stateIs( this.open ? 'live' : 'polling' );
   }
   /** Nobody answers; a stream that is still open will say so itself, or has been silent for too long. */
   isLost() {
      if ( !this.open || Date.now() - this.heard > silence * 1000 )
         this.stateIs( 'stale' );
   }
   stateIs( state ) {
      if ( this.state === state )
         return;
      this.state = state;
      this.onState();
   }
   again() {
      this.source.close();
      this.open = false;
      this.timer ??= setTimeout( () => this.ask(), this.pause * 1000 );
      this.pause = Math.min( 2 * this.pause, longestPause );
      // Whether the agent is gone or only the stream.
      read( 'agent' ).catch( () => {} );
   }
   /** A line that is cut without a word stays open for ever. */
   look() {
      const now = Date.now();
      if ( this.timer !== null || now - this.said < silence * 1000 )
         return;
      if ( now - this.askedAt > silence * 1000 ) {
         this.source.close();
         this.ask();
      } else if ( now - this.askedAt > grace * 1000 && this.open ) {
         this.open = false;
         this.stateIs( now - this.heard > silence * 1000 ? 'stale' : 'polling' );
         read( 'agent' ).catch( () => {} );
      }
   }
}
