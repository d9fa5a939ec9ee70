// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <list>
#include <map>
#include <string>

namespace ql::http {

/// Header fields: from lower-cased name to the list of values, in arrival order. Not synchronized.
class VIREO_API HttpHeaders {
public:
    /// From lower-cased name to values.
    using Map = std::map<std::string, std::list<std::string>>;

    HttpHeaders();
    ~HttpHeaders();
    /// Copies, or takes over.
    ///@{
    HttpHeaders(const HttpHeaders&);
    HttpHeaders(HttpHeaders&&) noexcept;
    HttpHeaders& operator=(const HttpHeaders&);
    HttpHeaders& operator=(HttpHeaders&&) noexcept;
    ///@}

    /// The values filed under `name`, which must be in lower case; null when there are none. The list lives until
    /// the next change of this object.
    const std::list<std::string>* find(const std::string& name) const;

    /// Appends `values` to those filed under `name`, which the caller has lower-cased.
    void addHeaderValues(const std::string& name, const std::list<std::string>& values);
    /// The same, moving name and values in; `values` is left empty.
    void addHeaderValues(std::string&& name, std::list<std::string>&& values);

    /// All fields, in byte order of their names.
    const Map& getAll() const { return map_; }

    /// Splits a field value at its commas (RFC 9110 section 5.6.1) and appends the elements to `values`.
    ///
    /// White space around an element is dropped, and so are empty elements; a value without any gives one empty
    /// text, so that the field is still seen. A comma inside a quoted string does not split; quotes and escapes stay
    /// as they are, and a quote that is not closed is an ordinary character. A field whose value holds commas of its
    /// own (Date, User-Agent) is split too: join its elements with ", " to have it back.
    /// @return false, with nothing appended, when the value holds a control character other than the tab.
    static bool ParseMultiValueHeader(const char* value, std::list<std::string>& values);

private:
    Map map_;
};

} // namespace ql::http
