/* net.h - XML documents by path, over Mini-XML.
 *
 * Shared rules:
 * - `struct _mxml_node_s` is Mini-XML's mxml_node_t: trees and nodes go to its
 *   own functions and come from them. A tree is the node at its top.
 * - A path is "/name/name[index]/...". An index is decimal and counts from 0 the
 *   children of that name; none is 0. The "]", and what follows the number, may
 *   be missing or anything; no number behind "[" is 0. Components without a name
 *   are skipped: "/" is the tree itself, "//a/" is "/a".
 *   The first component may name the top element of the tree itself, index 0: it
 *   is taken when no child of the tree has that name.
 * - Texts are UTF-8. Texts become opaque nodes, one for all characters between
 *   two tags, blanks and line feeds included. Markup characters are escaped when
 *   a tree is serialised, not before.
 * - XML text parses when Mini-XML accepts it as the content of an element: every
 *   element is closed in its order; only the ">" of the last tag may be missing.
 *   Characters behind the last tag are left out; a control character or a broken
 *   UTF-8 sequence counts as the end of the text, and a byte 0xFE or 0xFF anywhere
 *   in it means that it does not parse. An empty text parses to nothing.
 * - Documents, names, paths and their depth have no limit but memory.
 * - Results of the functions that return a number:
 *     0    done
 *     1    a null tree or path, or a negative index
 *     2    no such node, or none can be made
 *     3    the XML text is null
 *     500  what is asked for makes no sense or does not parse
 *   Unless said otherwise nothing is changed when it is not 0: outputs keep their
 *   presets, trees stay as they were.
 * - Mini-XML's error callback of the calling thread is replaced by a silent one
 *   by every function that parses, and stays so: it prints to standard error
 *   otherwise, and cannot be asked for what it was. Programs that set their own
 *   set it after. */
#ifndef KTCOMM_NET_H
#define KTCOMM_NET_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

struct _mxml_node_s;

/* The tree of the request at work, for the program to set and delete. The
 * library neither reads nor changes it; null at first. */
KT_EXPORT extern struct _mxml_node_s *request_tree;

/* ---- Trees ------------------------------------------------------------ */

/* Parses a document: one element, or any number of nodes behind a declaration
 * ("<?xml ...?>", "<!DOCTYPE ...>"), which then is the top of the tree and holds
 * them as its children. The text begins with '<'.
 * Returns the tree, for del_tree; null for a null text, one that does not parse
 * as such, or when memory runs out. */
KT_EXPORT struct _mxml_node_s *load_tree(const char *text);

/* load_tree of the request body: of exactly as many bytes of standard input as
 * the environment variable "CONTENT_LENGTH" says, a plain decimal number of 1 to
 * 20480. They are read through `stdin`, which is left behind the last of them; an
 * interrupted read is taken up again. A NUL byte ends the document.
 * Returns the tree; null, nothing read, for a missing number or another one; null
 * also when the body ends early, and as load_tree. */
KT_EXPORT struct _mxml_node_s *load_tree_from_stdin(void);

/* Deletes `node`, taking it out of its tree, and everything below it; null is
 * ignored. */
KT_EXPORT void del_tree(struct _mxml_node_s *node);

/* ---- Reading ---------------------------------------------------------- */

/* Finds a node. Stores it in `*node`; a null `node` is allowed. When it has
 * children, they are serialised into `text`, a buffer of 1024 bytes or null: all
 * of them, cut anywhere to 1022 bytes, and a NUL; without children `text` is left
 * as it is.
 * Returns 0; 1 or 2; 500 for a path that does not begin with '/'. Each failure is
 * traced at level 8, module 8. */
KT_EXPORT int read_from_xml(struct _mxml_node_s *tree, const char *path, struct _mxml_node_s **node,
                            char *text);

/* read_from_xml in the content of an element "root" which is parsed from `xml`,
 * any number of nodes. A node that is asked for is taken out of there: it is a
 * tree of its own, for del_tree.
 * Returns 3 for a null `xml`, 1 for one that does not parse, otherwise as
 * read_from_xml; failures are traced here too. */
KT_EXPORT int read_from_xmlstr(const char *xml, const char *path, struct _mxml_node_s **node,
                               char *text);

/* Returns the node, or null where read_from_xml fails, which traces it. */
KT_EXPORT struct _mxml_node_s *find_xml_node(struct _mxml_node_s *tree, const char *path);

/* Returns the text of a node, which is its first child: an opaque text, or what a
 * CDATA section holds; null for any other or none, or where find_xml_node is
 * null. The text is the tree's: it stands until that child is changed. */
KT_EXPORT const char *xml_get_node_value(struct _mxml_node_s *tree, const char *path);

/* Returns the value of an attribute of a node, the tree's as above; null when
 * there is none, for a null `name`, or where find_xml_node is null. */
KT_EXPORT const char *xml_get_attr_value(struct _mxml_node_s *tree, const char *path,
                                         const char *name);

/* ---- Writing ---------------------------------------------------------- */

/* Makes the elements of a path that are missing, each as the last child: a name
 * with an index is made when exactly as many of that name are there already.
 * Then does with the last one and `text` as `mode` says:
 *   1  add_xmlstring_to_node      3  add_string_to_node     5  add_cdata_to_node
 *   2  replace_xmlstring_to_node  4  replace_string_to_node
 * With a null `text` the elements are made and that is all, whatever the mode.
 * Names are not checked: markup characters in them make a document that does not
 * parse.
 * Stores the last element in `*node`; a null `node` is allowed.
 * Returns 0; 1, also for a path that does not begin with '/'; 2, also for an index
 * that leaves a gap; 500 for a `text` with a `mode` other than those; else what the
 * function of the mode returns. When it is not 0 no element made is left. */
KT_EXPORT int write_to_xml(struct _mxml_node_s *tree, const char *path, struct _mxml_node_s **node,
                           const char *text, int mode);

/* write_to_xml in the content of an element "root" which is parsed from `xml`, a
 * buffer of at least 1024 bytes, which then gets the new content, serialised.
 * Returns 3 for a null `xml`, 1 for one that does not parse, 2 when the new content
 * takes more than 1022 bytes, otherwise as write_to_xml; `xml` is as it was when
 * it is not 0. */
KT_EXPORT int write_to_xmlstr(char *xml, const char *path, const char *text, int mode);

/* ---- Contents of one node --------------------------------------------- */

/* All return 0; 500, nothing changed, for a null argument, a `node` that is no
 * element, or when memory runs out. Nodes are added as the last children. Texts
 * are copied, and may come from the content of the node itself. */

/* Adds one opaque text; nothing when `text` is empty. */
KT_EXPORT int add_string_to_node(struct _mxml_node_s *node, const char *text);

/* Deletes the children first. */
KT_EXPORT int replace_string_to_node(struct _mxml_node_s *node, const char *text);

/* Adds one CDATA section; nothing when `text` is empty. One that holds "]]>",
 * which no section can, is divided among several, behind each "]]": the node's value
 * is then that of the first. */
KT_EXPORT int add_cdata_to_node(struct _mxml_node_s *node, const char *text);

/* Parses `xml` and adds its nodes in their order:
 *   empty                    nothing is added
 *   does not parse           500
 *   no nodes, such as "abc"  added as one opaque text, just as it stands
 *   others                   nodes at the top, and the texts in front of them
 * A null argument and a failed parse are traced at level 8, module 8. */
KT_EXPORT int add_xmlstring_to_node(struct _mxml_node_s *node, const char *xml);

/* Deletes the children there were, once `xml` has parsed. */
KT_EXPORT int replace_xmlstring_to_node(struct _mxml_node_s *node, const char *xml);

/* Sets the attribute "errno" to `number` and then "errstr" to `text`, each unless
 * it is null. Returns 0; 500 for a `node` that is null, no element, or the declaration
 * at the top of a tree, which has no attributes of its own. */
KT_EXPORT int add_error_attribute(struct _mxml_node_s *node, const char *number, const char *text);

KT_END_DECLS

#endif
