/* The shared library is made of qzvault_core, linked whole; a target needs at
   least one source of its own. */
typedef int qzvault_exports_translation_unit_is_not_empty;
