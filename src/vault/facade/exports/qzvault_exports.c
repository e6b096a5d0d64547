/* The shared library is made of the objects of every folder of src/vault; a
   target needs at least one source of its own. */
typedef int qzvault_exports_translation_unit_is_not_empty;
