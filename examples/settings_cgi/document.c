/* document.c - between the elements of a document and the values of a record. */
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "settings_cgi.h"

/* ---- Values ----------------------------------------------------------------- */

bool make_printable(char* text) {
  bool was = true;
  for (; *text != '\0'; ++text) {
    if (*text >= ' ' && *text <= '~') continue;
    *text = '?';
    was = false;
  }
  return was;
}

static bool is_printable(const char* text) {
  while (*text >= ' ' && *text <= '~') ++text;
  return *text == '\0';
}

bool read_number(const char* text, int low, int high, int* number) {
  const char* digits = *text == '-' ? text + 1 : text;
  const size_t length = strlen(digits);
  long long value;
  if (length == 0 || length > 10 || strspn(digits, "0123456789") != length) return false;
  value = strtoll(text, NULL, 10);
  if (value < low || value > high) return false;
  *number = (int)value;
  return true;
}

/* ---- Documents in ----------------------------------------------------------- */

const char* text_of(mxml_node_t* element) {
  mxml_node_t* first = mxmlGetFirstChild(element);
  if (first == NULL) return "";
  return mxmlGetNextSibling(first) == NULL ? xml_get_node_value(element, "/") : NULL;
}

static int take_value(mxml_node_t* element, const Field* field, void* record, Fault* fault) {
  const char* text = text_of(element);
  char* place = (char*)record + field->offset;
  if (text == NULL) return refuse(fault, BAD_DOCUMENT, "%s holds more than a text", field->name);
  if (field->size == 0) {
    int number;
    if (!read_number(text, field->low, field->high, &number)) {
      return refuse(fault, BAD_VALUE, "%s is no number from %d to %d", field->name, field->low,
                    field->high);
    }
    memcpy(place, &number, sizeof number);
    return 0;
  }
  if (strlen(text) >= field->size) {
    return refuse(fault, BAD_VALUE, "%s is longer than %zu characters", field->name,
                  field->size - 1);
  }
  if (!is_printable(text) || (field->valid != NULL && !field->valid(text)))
    return refuse(fault, BAD_VALUE, "%s holds a character that it cannot hold", field->name);
  strncpy(place, text, field->size); /* with zeros up to the end of the field */
  return 0;
}

/* Comments, and blanks and line ends between elements. */
static bool says_nothing(mxml_node_t* node) {
  if (mxmlGetType(node) == MXML_ELEMENT) return strncmp(mxmlGetElement(node), "!--", 3) == 0;
  if (mxmlGetType(node) != MXML_OPAQUE) return false;
  return mxmlGetOpaque(node)[strspn(mxmlGetOpaque(node), " \t\r\n")] == '\0';
}

static const Field* find_field(const Field* fields, mxml_node_t* node) {
  const char* name = mxmlGetElement(node); /* null for a text */
  if (name == NULL) return NULL;
  while (fields->name != NULL && strcmp(fields->name, name) != 0) ++fields;
  return fields->name != NULL ? fields : NULL;
}

int take_children(mxml_node_t* element, const Field* fields, void* record, Fault* fault) {
  unsigned seen = 0; /* bit n = fields[n] */
  for (mxml_node_t* child = mxmlGetFirstChild(element); child != NULL;
       child = mxmlGetNextSibling(child)) {
    const Field* field = find_field(fields, child);
    if (says_nothing(child)) continue;
    if (field == NULL) {
      const char* name = mxmlGetElement(child);
      return refuse(fault, BAD_DOCUMENT, "unexpected in %.60s: %.60s", mxmlGetElement(element),
                    name != NULL ? name : "text");
    }
    if (!field->repeats && (seen >> (field - fields) & 1u) != 0)
      return refuse(fault, BAD_DOCUMENT, "%s stands there twice", field->name);
    seen |= 1u << (field - fields);
    if ((field->take != NULL ? field->take(child, record, fault)
                             : take_value(child, field, record, fault)) != 0)
      return -1;
  }
  return 0;
}

/* ---- Documents out ---------------------------------------------------------- */

mxml_node_t* add_text(mxml_node_t* parent, const char* name, const char* text) {
  mxml_node_t* element = mxmlNewElement(parent, name);
  char line[512];
  (void)snprintf(line, sizeof line, "%s", text);
  (void)make_printable(line);
  (void)add_string_to_node(element, line);
  return element;
}

mxml_node_t* add_number(mxml_node_t* parent, const char* name, int number) {
  char text[12];
  (void)snprintf(text, sizeof text, "%d", number);
  return add_text(parent, name, text);
}

void show_fields(mxml_node_t* parent, const Field* fields, const void* record) {
  for (; fields->name != NULL; ++fields) {
    const char* place = (const char*)record + fields->offset;
    int number;
    if (fields->show != NULL) fields->show(parent, record);
    if (fields->show != NULL || fields->take != NULL || fields->secret) continue;
    memcpy(&number, place, sizeof number);
    if (fields->size == 0) {
      (void)add_number(parent, fields->name, number);
    } else {
      (void)add_text(parent, fields->name, place);
    }
  }
}
