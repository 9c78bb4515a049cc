// Past maintenances: the list.

import { h, Rows, shown, text } from '../dom.js';
import * as format from '../format.js';
import { Reading } from '../link.js';
import { broken, recordLink, unitLink } from '../parts.js';
import { outcomes } from './record.js';

/** Columns that a phone has no room for. */
const wide = new Set( [ 'Took', 'Spikes', 'By', 'Why' ] );

export class RecordTable {
   constructor( { caption, unit = true } ) {
      this.unit = unit;
      this.body = h( 'tbody' );
      this.none = h( 'p', { class: 'none' }, 'none yet' );
      const columns = [ 'No.', unit ? 'Unit' : null, 'From (UTC)', 'Took', 'Outcome', 'Spikes', 'By', 'Why' ].filter( Boolean );
      this.table = h( 'table', { class: 'records' }, h( 'caption', { class: 'unseen' }, caption ),
         h( 'thead', {}, h( 'tr', {}, columns.map( ( name ) => h( 'th', { scope: 'col', class: wide.has( name ) ? 'wide' : null },
            name ) ) ) ), this.body );
      this.element = h( 'div', {}, this.table, this.none );
      this.rows = new Rows( this.body, ( record ) => record.id, ( record ) => this.row( record ) );
      this.update( [] );
   }
   row( record ) {
      const took = h( 'td', { class: 'wide brief' } ), outcome = h( 'td', { class: 'brief' } ), spikes = h( 'td', { class: 'wide' } );
      return {
         element: h( 'tr', {}, h( 'th', { scope: 'row' }, h( 'a', { href: recordLink( record.id ) }, String( record.id ) ) ),
            this.unit ? h( 'td', {}, h( 'a', { href: unitLink( record.unit ) }, record.unit ) ) : null,
            broken( h( 'td' ), format.day( format.seconds( record.began ) ) ), took, outcome, spikes,
            h( 'td', { class: 'wide short' }, record.by ?? '' ), h( 'td', { class: 'wide' }, record.reason ?? '' ) ),
         update( now ) {
            const from = format.seconds( now.began ), to = format.seconds( now.ended );
            text( took, from !== null && to !== null ? format.duration( to - from ) : '' );
            text( spikes, now.counts.spikes );
            text( outcome, outcomes[ now.outcome ] ?? now.outcome );
         },
      };
   }
   update( records ) {
      this.rows.update( records );
      shown( this.table, records.length > 0 );
      shown( this.none, records.length === 0 );
   }
}

export class HistoryView {
   constructor( model ) {
      this.model = model;
      this.title = 'History';
      this.records = new RecordTable( { caption: 'Maintenances, newest first' } );
      this.element = h( 'div', { class: 'view' }, h( 'div', { class: 'head' }, h( 'h1', {}, 'Past maintenances' ) ), this.records.element );
      this.past = new Reading( { path: () => 'history?limit=200', onBody: ( records ) => this.records.update( records ?? [] ) } );
      this.states = null;
      model.watch( [] );
   }
   update() {
      const states = JSON.stringify( this.model.units?.map( ( unit ) => [ unit.name, unit.state ] ) );
      if ( states === this.states )
         return;
      this.states = states;
      this.past.ask();
   }
   remove() { this.past.stop(); }
}
