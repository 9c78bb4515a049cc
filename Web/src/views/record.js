// One past maintenance: who, why, what came of it, and the curve of each interface.

import { optional } from '../model.js';
import { h, shown, text } from '../dom.js';
import { crumbs } from '../parts.js';

export class RecordView {
   constructor( model, id ) {
      this.title = `Maintenance ${id}`;
      this.id = id;
      this.none = h( 'p', { class: 'none' } );
      this.body = h( 'div' );
      this.element = h( 'div', { class: 'view' }, crumbs( [ 'Past maintenances', '#/history' ], [ String( id ) ] ),
         h( 'div', { class: 'head' }, h( 'h1', {}, `Maintenance ${id}` ) ), this.none, this.body );
      model.watch( [] );
   }
   update() {}
   remove() {}
}
