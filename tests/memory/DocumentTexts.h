#pragma once

#include <string>

// Documents with texts of both kinds: those that a string holds inside itself, and those that it puts on the heap.

inline const std::string Utf8Text = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                                    "<Configure name=\"Device\">\n"
                                    "\t<!-- a comment -->\n"
                                    "\t<Configure name=\"Empty\" />\n"
                                    "\t<Configure name=\"Names\">\n"
                                    "\t\ta text between elements, on the heap\n"
                                    "\t\t<ConfigItem value=\"\xE5\x8D\x8F\xE8\xAE\xAE, a long value, on the heap\" />\n"
                                    "\t\t<ConfigItem value=\"2\" />\n"
                                    "\t</Configure>\n"
                                    "</Configure>\n";
inline const std::string Gb2312Text = "<?xml version=\"1.0\" encoding=\"gb2312\" standalone=\"no\" ?>\n"
                                      "<Configure name=\"Device\">\n"
                                      "\t<Configure name=\"Names\">\n"
                                      "\t\t<ConfigItem value=\"\xD0\xAD\xD2\xE9, a long value, on the heap\" />\n"
                                      "\t</Configure>\n"
                                      "</Configure>\n";
// What comes of the one above.
inline const std::string Gb2312TextSaved =
    "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
    "<Configure name=\"Device\">\n"
    "\t<Configure name=\"Names\">\n"
    "\t\t<ConfigItem value=\"\xE5\x8D\x8F\xE8\xAE\xAE, a long value, on the heap\" />\n"
    "\t</Configure>\n"
    "</Configure>\n";
inline const std::string CreatedText = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                                       "<Configure name=\"HardwareConfig\" />\n";
