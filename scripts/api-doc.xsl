<?xml version="1.0"?>
<!-- Doxygen's XML of the headers as docs/api.md; run by scripts/api-doc. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
<xsl:output method="text" encoding="UTF-8"/>
<xsl:strip-space elements="*"/>
<xsl:preserve-space elements="para"/>
<xsl:param name="xml"/>        <!-- the folder of Doxygen's XML -->
<xsl:param name="layout"/>     <!-- a file with the offset and the width of each field -->
<xsl:param name="operations"/> <!-- those whose data-plane calls are shown, each between two spaces -->

<xsl:variable name="bytes" select="document(concat('file://', $layout))/layout"/>

<xsl:template match="/">
  <xsl:variable name="term" select="document(concat($xml, '/zel__term_8h.xml'))//compounddef"/>
  <xsl:variable name="api" select="document(concat($xml, '/zel__term__api_8h.xml'))//compounddef"/>
  <xsl:variable name="udp" select="document(concat($xml, '/zel__udp__session_8h.xml'))//compounddef"/>
  <xsl:variable name="connection"
                select="document(concat($xml, '/zel__l2tp__control__connection_8h.xml'))//compounddef"/>
  <xsl:variable name="session" select="document(concat($xml, '/zel__l2tp__session_8h.xml'))//compounddef"/>
  <xsl:variable name="handler" select="document(concat($xml, '/zel__ovlin__session__handler_8h.xml'))//compounddef"/>
  <xsl:variable name="all" select="$term | $api | $udp | $connection | $session | $handler"/>

  <xsl:text># Interface

Made by `scripts/api-doc` from the comments of `include/zel_core_term/`, and from the calls that the stand-in data plane
saw; do not edit. One header includes all: `zel_core_term.h`, for C11 and C++20.

- [Result codes](#result-codes)
- [What is left when an operation fails](#what-is-left-when-an-operation-fails)
- [Start and stop](#start-and-stop)
- [UDP sessions](#udp-sessions)
- [L2TPv3 control connections](#l2tpv3-control-connections)
- [L2TPv3 sessions](#l2tpv3-sessions)
- [Session handler](#session-handler)
- [Time and tracing](#time-and-tracing)
- [Data objects](#data-objects)
- [Records](#records)
- [Limits](#limits)

The functions by name:

</xsl:text>
  <xsl:for-each select="$all//memberdef[@kind='function']">
    <xsl:sort select="name"/>
    <xsl:variable name="anchor" select="translate(name, 'H', 'h')"/>
    <xsl:value-of select="concat('- [', name, '](#', $anchor, ')&#10;')"/>
  </xsl:for-each>
  <xsl:text>
Addresses are in network byte order; all other integers, in records as in arguments, are in the machine's. An ovlin flow
ID is 12 bits of PCEP id and 20 bits of ovlin session id. "Must be valid" says that the pointer is not checked.

## Result codes

</xsl:text>
  <xsl:variable name="codes" select="$api/sectiondef[@kind='enum']/memberdef"/>
  <xsl:apply-templates select="$codes/briefdescription/para | $codes/detaileddescription/para"/>
  <xsl:text>
| Code | Name | Meaning |
| ---: | --- | --- |
</xsl:text>
  <xsl:for-each select="$codes/enumvalue">
    <xsl:value-of select="concat('| ', substring-after(initializer, '= '), ' | `', name, '` | ')"/>
    <xsl:apply-templates select="briefdescription/para | detaileddescription/para" mode="cell"/>
    <xsl:text> |&#10;</xsl:text>
  </xsl:for-each>

  <xsl:text>
## What is left when an operation fails

A refused argument (2 of a query, 3, 4, 5, 7, 10, and 13 while the library is stopped) leaves everything as it was; the
trace event names it. (A modify does not refuse a session of its list, but fails.) Reading counters changes nothing
either. What a success leaves (a release without disconnect, an add over a session, a flow ID of 0, start, stop) is told
at the function. What a failed call can leave, in the tables or in the data plane:

| Operation | Result | What is left |
| --- | ---: | --- |
</xsl:text>
  <xsl:for-each select="($term | $udp | $connection | $session)//memberdef[@kind='function']">
    <xsl:if test="contains($operations, concat(' ', name, ' ')) and not(contains(name, '_stats'))">
      <xsl:variable name="name" select="name"/>
      <xsl:for-each select="detaileddescription//parameterlist[@kind='retval']/parameteritem">
        <xsl:variable name="text" select="normalize-space(parameterdescription)"/>
        <xsl:if test="parameternamelist/parametername = '0' and contains($text, 'fail')
                      or parameternamelist/parametername != '0' and not(contains($text, 'nothing was done'))">
          <xsl:value-of select="concat('| [', $name, '](#', $name, ') | ', parameternamelist/parametername, ' | ')"/>
          <xsl:apply-templates select="parameterdescription/para" mode="cell"/>
          <xsl:text> |&#10;</xsl:text>
        </xsl:if>
      </xsl:for-each>
    </xsl:if>
  </xsl:for-each>
  <xsl:text>
At each operation stand the data-plane calls that it makes, as the stand-in saw them: first those of a success,
numbered; then, for each of them, what comes of its failure (here without effect; what a failed call with an effect
leaves is above): the result, what is left behind, and the calls that follow. `A -> B` is a binding. An operation that
gives 0 all the same leaves behind what it was to take away. How often all of this was tried is in
[reliability.md](reliability.md).
</xsl:text>

  <xsl:text>&#10;## Start and stop&#10;&#10;</xsl:text>
  <xsl:apply-templates select="$term/detaileddescription/para | $term/briefdescription/para"/>
  <xsl:apply-templates select="$term/sectiondef[header='Start and stop']/memberdef[@kind='function']"/>
  <xsl:for-each select="$udp | $connection | $session | $handler">
    <xsl:text>&#10;## </xsl:text>
    <xsl:choose>
      <xsl:when test="compoundname='zel_udp_session.h'">UDP sessions</xsl:when>
      <xsl:when test="compoundname='zel_l2tp_control_connection.h'">L2TPv3 control connections</xsl:when>
      <xsl:when test="compoundname='zel_l2tp_session.h'">L2TPv3 sessions</xsl:when>
      <xsl:otherwise>Session handler</xsl:otherwise>
    </xsl:choose>
    <xsl:text>&#10;&#10;</xsl:text>
    <xsl:apply-templates select="briefdescription/para | detaileddescription/para"/>
    <xsl:apply-templates select="sectiondef/memberdef[@kind='function']"/>
  </xsl:for-each>
  <xsl:text>&#10;## Time and tracing&#10;</xsl:text>
  <xsl:apply-templates select="$term/sectiondef[header='Time and tracing']/memberdef[@kind='function']"/>

  <xsl:text>&#10;## Data objects&#10;</xsl:text>
  <xsl:apply-templates select="$all/sectiondef/memberdef[@kind='variable']"/>
  <xsl:text>&#10;## Records&#10;&#10;Offsets and widths in bytes; what the tables leave out is reserved. </xsl:text>
  <xsl:text>Records of the platform libraries are in `platform/include/`.&#10;</xsl:text>
  <xsl:for-each select="$all/innerclass">
    <xsl:variable name="refid" select="@refid"/>
    <xsl:apply-templates select="document(concat($xml, '/', @refid, '.xml'))//compounddef">
      <xsl:with-param name="about" select="$all/sectiondef/memberdef[@kind='typedef'][type/ref/@refid=$refid]"/>
    </xsl:apply-templates>
  </xsl:for-each>
  <xsl:text>&#10;## Limits&#10;&#10;| Name | Value | |&#10;| --- | ---: | --- |&#10;</xsl:text>
  <xsl:for-each select="($udp | $connection | $session)/sectiondef[@kind='enum']/memberdef/enumvalue">
    <xsl:value-of select="concat('| `', name, '` | ', substring-after(initializer, '= '), ' | ')"/>
    <xsl:apply-templates select="../briefdescription/para | ../detaileddescription/para" mode="cell"/>
    <xsl:text> |&#10;</xsl:text>
  </xsl:for-each>
</xsl:template>

<!-- A function. -->
<xsl:template match="memberdef[@kind='function']">
  <xsl:value-of select="concat('&#10;### ', name, '&#10;&#10;```c&#10;', type)"/>
  <xsl:if test="substring(type, string-length(type)) != '*'"><xsl:text> </xsl:text></xsl:if>
  <xsl:value-of select="concat(name, argsstring, ';&#10;```&#10;&#10;')"/>
  <xsl:apply-templates select="briefdescription/para | detaileddescription/para[not(parameterlist)]"/>
  <xsl:apply-templates select="detaileddescription/para[parameterlist]"/>
  <xsl:if test="detaileddescription//parameterlist[@kind='param']">
    <xsl:text>| Argument | |&#10;| --- | --- |&#10;</xsl:text>
    <xsl:for-each select="detaileddescription//parameterlist[@kind='param']/parameteritem">
      <xsl:value-of select="concat('| `', parameternamelist/parametername, '` | ')"/>
      <xsl:apply-templates select="parameterdescription/para" mode="cell"/>
      <xsl:text> |&#10;</xsl:text>
    </xsl:for-each>
    <xsl:text>&#10;</xsl:text>
  </xsl:if>
  <xsl:if test="detaileddescription//parameterlist[@kind='retval']">
    <xsl:text>| Result | What it leaves |&#10;| ---: | --- |&#10;</xsl:text>
    <xsl:for-each select="detaileddescription//parameterlist[@kind='retval']/parameteritem">
      <xsl:value-of select="concat('| ', parameternamelist/parametername, ' | ')"/>
      <xsl:apply-templates select="parameterdescription/para" mode="cell"/>
      <xsl:text> |&#10;</xsl:text>
    </xsl:for-each>
  </xsl:if>
  <xsl:for-each select=".//simplesect[@kind='return']">
    <xsl:text>Result: </xsl:text>
    <xsl:apply-templates select="para" mode="cell"/>
    <xsl:text>&#10;</xsl:text>
  </xsl:for-each>
  <xsl:if test="contains($operations, concat(' ', name, ' '))">
    <xsl:value-of select="concat('&#10;Calls:&#10;&#10;&lt;!-- made by: zel-proof calls ', name, ' --&gt;&#10;')"/>
    <xsl:text>```&#10;```&#10;</xsl:text>
  </xsl:if>
</xsl:template>

<!-- An exported variable. -->
<xsl:template match="memberdef[@kind='variable']">
  <xsl:value-of select="concat('&#10;### ', name, '&#10;&#10;```c&#10;extern ', definition, ';&#10;```&#10;&#10;')"/>
  <xsl:apply-templates select="briefdescription/para | detaileddescription/para" mode="cell"/>
  <xsl:text>&#10;</xsl:text>
</xsl:template>

<!-- A record with its layout. -->
<xsl:template match="compounddef">
  <xsl:param name="about"/>
  <xsl:variable name="record" select="compoundname"/>
  <xsl:value-of select="concat('&#10;### ', $record, '&#10;&#10;')"/>
  <xsl:apply-templates select="$about/briefdescription/para | $about/detaileddescription/para" mode="cell"/>
  <xsl:value-of select="concat(' (', $bytes/record[@name=$record]/@size, ' bytes)&#10;&#10;')"/>
  <xsl:text>| Offset | Width | Field | |&#10;| ---: | ---: | --- | --- |&#10;</xsl:text>
  <xsl:for-each select="sectiondef/memberdef">
    <xsl:variable name="place" select="$bytes/field[@record=$record and @name=current()/name]"/>
    <xsl:if test="$place">
      <xsl:value-of select="concat('| ', $place/@offset, ' | ', $place/@width, ' | ')"/>
      <xsl:value-of select="concat('`', type, ' ', name, argsstring, '` | ')"/>
      <xsl:apply-templates select="briefdescription/para | detaileddescription/para" mode="cell"/>
      <xsl:text> |&#10;</xsl:text>
    </xsl:if>
  </xsl:for-each>
</xsl:template>

<!-- Text: a paragraph of its own, or in a table's cell or a line. -->
<xsl:template match="para">
  <xsl:variable name="text"><xsl:apply-templates/></xsl:variable>
  <xsl:if test="normalize-space($text) != ''">
    <xsl:value-of select="concat(normalize-space($text), '&#10;&#10;')"/>
  </xsl:if>
</xsl:template>

<xsl:template match="para" mode="cell">
  <xsl:variable name="text"><xsl:apply-templates/></xsl:variable>
  <xsl:if test="position() > 1 and normalize-space($text) != ''"><xsl:text> </xsl:text></xsl:if>
  <xsl:call-template name="escaped"><xsl:with-param name="text" select="normalize-space($text)"/></xsl:call-template>
</xsl:template>

<xsl:template name="escaped">
  <xsl:param name="text"/>
  <xsl:choose>
    <xsl:when test="contains($text, '|')">
      <xsl:value-of select="concat(substring-before($text, '|'), '\|')"/>
      <xsl:call-template name="escaped">
        <xsl:with-param name="text" select="substring-after($text, '|')"/>
      </xsl:call-template>
    </xsl:when>
    <xsl:otherwise><xsl:value-of select="$text"/></xsl:otherwise>
  </xsl:choose>
</xsl:template>

<xsl:template match="parameterlist | simplesect"/>
<xsl:template match="computeroutput"><xsl:value-of select="concat('`', ., '`')"/></xsl:template>
<xsl:template match="ref">
  <xsl:variable name="anchor" select="translate(., 'ABCDEFGHIJKLMNOPQRSTUVWXYZ()', 'abcdefghijklmnopqrstuvwxyz')"/>
  <xsl:value-of select="concat('[', ., '](#', $anchor, ')')"/>
</xsl:template>
<xsl:template match="computeroutput/ref"><xsl:value-of select="."/></xsl:template>

</xsl:stylesheet>
