#include "coreapi/qmci/streamdatainfo.h"

namespace qm_ci {

constexpr std::string_view kBitmapInfoHeaderSchema = R"xsd(<?xml version="1.0" encoding="UTF-8"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" elementFormDefault="qualified" attributeFormDefault="unqualified">
  <xs:element name="BITMAPINFOHEADER">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="biSize" type="xs:unsignedInt"/>
        <xs:element name="biWidth" type="xs:int"/>
        <xs:element name="biHeight" type="xs:int"/>
        <xs:element name="biPlanes" type="xs:unsignedShort"/>
        <xs:element name="biBitCount" type="xs:unsignedShort"/>
        <xs:element name="biCompression" type="xs:unsignedInt"/>
        <xs:element name="biSizeImage" type="xs:unsignedInt"/>
        <xs:element name="biXPelsPerMeter" type="xs:int"/>
        <xs:element name="biYPelsPerMeter" type="xs:int"/>
        <xs:element name="biClrUsed" type="xs:unsignedInt"/>
        <xs:element name="biClrImportant" type="xs:unsignedInt"/>
        <xs:element name="colorMasks" minOccurs="0">
          <xs:complexType>
            <xs:sequence>
              <xs:element name="red" type="xs:unsignedInt"/>
              <xs:element name="green" type="xs:unsignedInt"/>
              <xs:element name="blue" type="xs:unsignedInt"/>
            </xs:sequence>
          </xs:complexType>
        </xs:element>
        <xs:element name="colorTable" minOccurs="0">
          <xs:complexType>
            <xs:sequence>
              <xs:element name="color" maxOccurs="unbounded">
                <xs:complexType>
                  <xs:sequence>
                    <xs:element name="red" type="xs:unsignedByte"/>
                    <xs:element name="green" type="xs:unsignedByte"/>
                    <xs:element name="blue" type="xs:unsignedByte"/>
                  </xs:sequence>
                </xs:complexType>
              </xs:element>
            </xs:sequence>
          </xs:complexType>
        </xs:element>
        <xs:element name="extraInformation" type="xs:base64Binary" minOccurs="0"/>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
</xs:schema>
)xsd";

constexpr std::string_view kWaveFormatExSchema = R"xsd(<?xml version="1.0" encoding="UTF-8"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" elementFormDefault="qualified" attributeFormDefault="unqualified">
  <xs:element name="WAVEFORMATEX">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="wFormatTag" type="xs:unsignedShort"/>
        <xs:element name="nChannels" type="xs:unsignedShort"/>
        <xs:element name="nSamplesPerSec" type="xs:unsignedInt"/>
        <xs:element name="nAvgBytesPerSec" type="xs:unsignedInt"/>
        <xs:element name="nBlockAlign" type="xs:unsignedShort"/>
        <xs:element name="wBitsPerSample" type="xs:unsignedShort"/>
        <xs:element name="cbSize" type="xs:unsignedShort"/>
        <xs:element name="extraInformation" type="xs:base64Binary" minOccurs="0"/>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
</xs:schema>
)xsd";

}  // namespace qm_ci
