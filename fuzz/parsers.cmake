# Every parser that reads what others wrote: PARSER_fuzz.cpp, seeds/PARSER/, found/PARSER/.
set(KT_PARSERS account area_table cipher copy_header crontab event_entry event_log ini_edit
  ini_scan line_count schedule shell_text xml_path)
