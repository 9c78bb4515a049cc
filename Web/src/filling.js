// Fills curves with the samples that the agent has kept: where nothing is known yet, and where the stream has left a gap.
// Some interfaces at a time, those in sight first, so that units of any size have their curves.

import { Refused } from './link.js';

/** Interfaces that are asked for at once: as many as their names leave room for in an address. */
export const together = 64;
/** Seconds that are asked for besides, so that what is kept reaches what is known. */
const margin = 15;

export class Filling {
   /**
    * `read( path )`: an answer of the API. `take( samples )`: it is there. `inSight`: names of the interfaces whose
    * curves are. `span`: seconds that are asked for at most. `now()`: the agent's time.
    */
   constructor( { read, take, inSight, span, now } ) {
      Object.assign( this, { read, take, inSight, span, now } );
      this.wanted = new Map();   ///< interface: since when its samples are missing
      this.running = false;
      this.problem = null;       ///< what the agent has refused the last ones with
   }
   /** The samples of an interface since that time are missing. */
   want( name, since = -Infinity ) {
      this.wanted.set( name, Math.min( since, this.wanted.get( name ) ?? Infinity ) );
      // Whoever wants one wants others too.
      queueMicrotask( () => this.run() );
   }
   forget( name ) { this.wanted.delete( name ); }

   /** Asks until all are there or nobody answers; what is missing then is asked for by the next `run()`. */
   async run() {
      if ( this.running || document.hidden || !this.wanted.size )
         return;
      this.running = true;
      try {
         while ( this.wanted.size && !document.hidden )
            await this.ask( this.next() );
      } catch {
         // The line says that nobody answers, or the problem that the agent is busy.
      } finally {
         this.running = false;
      }
   }
   next() {
      const names = [];
      for ( const from of [ this.inSight.keys(), this.wanted.keys() ] )
         for ( const name of from )
            if ( names.length < together && this.wanted.has( name ) && !names.includes( name ) )
               names.push( name );
      return names;
   }
   async ask( names ) {
      const since = names.map( ( name ) => this.wanted.get( name ) );
      const last = Math.min( this.span, Math.ceil( Math.max( 0, this.now() - Math.min( ...since ) ) ) + margin );
      let samples = null;
      try {
         samples = await this.read( `samples?last=${last}${
            names.map( ( name ) => `&interface=${encodeURIComponent( name )}` ).join( '' )}` );
         this.problem = null;
      } catch ( error ) {
         if ( !( error instanceof Refused ) )
            throw error;
         // One that has gone meanwhile does not keep the others from theirs.
         if ( error.status === 404 && names.includes( error.where ) ) {
            this.wanted.delete( error.where );
            return;
         }
         this.problem = `no curves: ${error.message}`;
         if ( error.busy )
            throw error;
      }
      names.forEach( ( name, i ) => {
         if ( this.wanted.get( name ) === since[ i ] )
            this.wanted.delete( name );
      } );
      if ( samples )
         this.take( samples );
   }
}
