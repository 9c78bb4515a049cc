// What has happened, newest first.

import { attribute, h } from '../dom.js';
import { EventTable } from '../parts.js';

const types = [ 'all', 'unit', 'interface', 'profile', 'agent' ];

export class EventsView {
   constructor( model ) {
      this.model = model;
      this.title = 'Events';
      this.type = 'all';
      this.table = new EventTable( { caption: 'Events, newest first' } );
      this.buttons = types.map( ( type ) => h( 'button', { type: 'button', onclick: () => this.typeIs( type ) }, type ) );
      this.element = h( 'div', { class: 'view' }, h( 'div', { class: 'head' }, h( 'h1', {}, 'Events' ) ),
         h( 'div', { 'class': 'choice', 'role': 'group', 'aria-label': 'Which events' }, this.buttons ), this.table.element );
      model.watch( [] );
   }
   typeIs( type ) {
      this.type = type;
      this.update();
   }
   update() {
      this.buttons.forEach( ( button, i ) => attribute( button, 'aria-pressed', String( types[ i ] === this.type ) ) );
      this.table.update( this.model.happened.rows( ( event ) => this.type === 'all' || event.type === this.type ), this.model.now() );
   }
   remove() {}
}
